#include "song_conflicts.h"

#include <algorithm>

namespace tamo::core {

SongConflicts findSongConflicts(const EventCore& core, std::int32_t songId, std::int32_t singerId) {
    SongConflicts found;
    for (const QueueEntry& entry : core.queue()) {
        if (entry.song.id != songId) continue;
        if (entry.singerId == singerId) {
            found.sameSingerQueued = true;
        } else {
            found.otherSingerQueued = true;
        }
    }
    found.current = core.current() && core.current()->song.id == songId;

    const Singer* singer = core.singerById(singerId);
    const auto& history = core.history();
    const std::size_t recent = std::min(history.size(), kRecentPerformances);
    for (std::size_t i = history.size() - recent; i < history.size(); ++i) {
        const HistoryEntry& entry = history[i];
        if (entry.song.id != songId) continue;
        if (entry.singerId == singerId || (singer != nullptr && entry.singer == singer->name)) {
            found.recentlyPerformed = true;
            break;
        }
    }
    return found;
}

}  // namespace tamo::core
