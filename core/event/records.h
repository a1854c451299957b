#pragma once

#include "song.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

struct Singer {
    std::int32_t id = 0;
    std::string name;

    friend bool operator==(const Singer&, const Singer&) = default;
};

// A song waiting for a singer; also the type of the current performance.
// `singer` is the queue's copy of the singer's name as of the last rename.
struct QueueEntry {
    std::int32_t id = 0;
    std::int32_t singerId = 0;
    Song song;
    std::string singer;

    friend bool operator==(const QueueEntry&, const QueueEntry&) = default;
};

// A finished performance. `singer` is the name at the time it was sung;
// renames never reach history. `playedAt` is seconds since the Unix epoch.
struct HistoryEntry {
    std::int32_t id = 0;
    std::int32_t singerId = 0;
    Song song;
    std::string singer;
    double playedAt = 0.0;

    friend bool operator==(const HistoryEntry&, const HistoryEntry&) = default;
};

// Kept as a plain 32-bit value so that a snapshot read from outside can carry
// any number and be refused, rather than be silently coerced.
enum class PlaybackStatus : std::int32_t { Stopped = 0, Playing = 1, Paused = 2 };

// "stopped", "playing", "paused", or "unknown" for any other value.
std::string_view playbackStatusWord(PlaybackStatus status);

// A value copy of the event without the library.
struct EventSnapshot {
    std::int32_t nextSingerId = 1;
    std::int32_t nextQueueId = 1;
    std::int32_t nextHistoryId = 1;
    std::vector<Singer> singers;
    std::vector<QueueEntry> queue;
    std::optional<QueueEntry> current;
    std::vector<HistoryEntry> history;
    PlaybackStatus playbackStatus = PlaybackStatus::Stopped;
    double musicVolume = 0.85;

    friend bool operator==(const EventSnapshot&, const EventSnapshot&) = default;
};

inline constexpr std::int32_t kLastValidId = 0x7FFFFFFE;
inline constexpr std::size_t kMaxSingers = 10000;
inline constexpr std::size_t kMaxQueueEntries = 100000;
inline constexpr std::size_t kMaxHistoryEntries = 100000;

// Ids run from 1 to 2147483646; a counter past that refuses every new record.
constexpr bool isValidId(std::int32_t value) { return value >= 1 && value <= kLastValidId; }

}  // namespace tamo::core
