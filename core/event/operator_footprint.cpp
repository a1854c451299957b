#include "operator_footprint.h"

#include <limits>

namespace tamo::core {
namespace {

constexpr std::uint64_t kMaxBytes = std::numeric_limits<std::uint64_t>::max();

std::uint64_t saturatingMultiply(std::uint64_t count, std::uint64_t weight) {
    if (weight != 0 && count > kMaxBytes / weight) return kMaxBytes;
    return count * weight;
}

std::uint64_t nameBytes(const std::optional<Singer>& singer) {
    return singer ? saturatingAdd(singer->name.capacity(), 1) : 0;
}

std::uint64_t linkBytes(const std::vector<LinkChange>& links) {
    return saturatingAdd(48, saturatingMultiply(links.capacity(), 20));
}

}  // namespace

std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) {
    return b > kMaxBytes - a ? kMaxBytes : a + b;
}

std::uint64_t operatorStepBytes(const OperatorStep& step) {
    std::uint64_t bytes = 136;
    bytes = saturatingAdd(bytes, linkBytes(step.singerLinks));
    bytes = saturatingAdd(bytes, saturatingMultiply(step.singerChanges.capacity(), 104));
    for (const SingerChange& change : step.singerChanges) {
        bytes = saturatingAdd(bytes, nameBytes(change.before));
        bytes = saturatingAdd(bytes, nameBytes(change.after));
    }
    bytes = saturatingAdd(bytes, linkBytes(step.queueLinks));
    return saturatingAdd(bytes, saturatingMultiply(step.queueChanges.capacity(), 36));
}

std::uint64_t operatorSnapshotBytes(const OperatorSnapshot& snapshot) {
    std::uint64_t bytes = 72;
    bytes = saturatingAdd(bytes, saturatingMultiply(snapshot.singers.capacity(), 40));
    bytes = saturatingAdd(bytes, saturatingMultiply(snapshot.queue.capacity(), 12));
    for (const Singer& singer : snapshot.singers) {
        bytes = saturatingAdd(bytes, saturatingAdd(singer.name.capacity(), 1));
    }
    return bytes;
}

}  // namespace tamo::core
