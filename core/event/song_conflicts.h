#pragma once

#include "event_core.h"

#include <cstdint>

namespace tamo::core {

// Four independent facts checked before an operator queues a song.
struct SongConflicts {
    bool sameSingerQueued = false;
    bool otherSingerQueued = false;
    bool current = false;
    bool recentlyPerformed = false;

    bool any() const { return sameSingerQueued || otherSingerQueued || current || recentlyPerformed; }
};

// "Recently" is the newest 25 history entries; a match is by singer id or by
// the singer's present name, so a rename splits the test on purpose.
inline constexpr std::size_t kRecentPerformances = 25;

SongConflicts findSongConflicts(const EventCore& core, std::int32_t songId, std::int32_t singerId);

}  // namespace tamo::core
