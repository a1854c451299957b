#pragma once

#include "records.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace tamo::core {

// A queue entry reduced to what undo needs: the song is re-read from the
// library when a step is applied, so song data never enters a step.
struct QueueRef {
    std::int32_t id = 0;
    std::int32_t singerId = 0;
    std::int32_t songId = 0;

    friend bool operator==(const QueueRef&, const QueueRef&) = default;
};

using CurrentRef = std::optional<QueueRef>;

// The rotation as undo sees it: singers, queue order and the current
// performance, without history, library, playback status or volume.
struct OperatorSnapshot {
    std::int32_t nextSingerId = 1;
    std::int32_t nextQueueId = 1;
    std::vector<Singer> singers;
    std::vector<QueueRef> queue;
    CurrentRef current;
};

// Singers, queue and current equal; counters are compared separately.
bool sameOperatorContent(const OperatorSnapshot& a, const OperatorSnapshot& b);
bool sameOperatorCounters(const OperatorSnapshot& a, const OperatorSnapshot& b);

}  // namespace tamo::core
