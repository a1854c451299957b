#include "operator_snapshot.h"

#include "event_core.h"
#include "id_table.h"
#include "text.h"

#include <algorithm>

namespace tamo::core {
namespace {

QueueRef refOf(const QueueEntry& entry) { return QueueRef{entry.id, entry.singerId, entry.song.id}; }

bool needsTrim(const std::string& name) {
    return !name.empty() && (isSpaceByte(name.front()) || isSpaceByte(name.back()));
}

}  // namespace

bool sameOperatorContent(const OperatorSnapshot& a, const OperatorSnapshot& b) {
    return a.singers == b.singers && a.queue == b.queue && a.current == b.current;
}

bool sameOperatorCounters(const OperatorSnapshot& a, const OperatorSnapshot& b) {
    return a.nextSingerId == b.nextSingerId && a.nextQueueId == b.nextQueueId;
}

OperatorSnapshot EventCore::operatorSnapshot() const {
    OperatorSnapshot snapshot;
    snapshot.nextSingerId = nextSingerId_;
    snapshot.nextQueueId = nextQueueId_;
    snapshot.singers = singers_;
    snapshot.queue.reserve(queue_.size());
    for (const QueueEntry& entry : queue_) snapshot.queue.push_back(refOf(entry));
    if (current_) snapshot.current = refOf(*current_);
    return snapshot;
}

bool EventCore::applyOperatorSnapshot(const OperatorSnapshot& snapshot) {
    if (snapshot.singers.size() > kMaxSingers || snapshot.queue.size() > kMaxQueueEntries) return false;

    std::vector<Singer> singers = snapshot.singers;
    IdTable<const Singer*> singerIds(singers.size());
    std::int32_t largestSinger = 0;
    for (Singer& singer : singers) {
        if (needsTrim(singer.name)) singer.name = trimText(singer.name);
        if (singer.id < 1 || singer.name.empty()) return false;
        const auto [slot, inserted] = singerIds.insert(singer.id);
        if (!inserted) return false;
        *slot = &singer;
        largestSinger = std::max(largestSinger, singer.id);
    }
    if (snapshot.nextSingerId <= largestSinger) return false;

    // Song data is read from the library as it is now, never from the step.
    auto bind = [&](const QueueRef& ref) -> std::optional<QueueEntry> {
        if (ref.id < 1) return std::nullopt;
        const Singer* const* singer = singerIds.find(ref.singerId);
        const Song* song = songById(ref.songId);
        if (singer == nullptr || song == nullptr) return std::nullopt;
        return QueueEntry{ref.id, ref.singerId, *song, (*singer)->name};
    };

    std::vector<QueueEntry> queue;
    queue.reserve(snapshot.queue.size());
    IdTable<char> queueIds(snapshot.queue.size() + 1);
    std::int32_t largestQueue = 0;
    for (const QueueRef& ref : snapshot.queue) {
        std::optional<QueueEntry> entry = bind(ref);
        if (!entry || !queueIds.insert(ref.id).second) return false;
        queue.push_back(std::move(*entry));
        largestQueue = std::max(largestQueue, ref.id);
    }
    std::optional<QueueEntry> current;
    if (snapshot.current) {
        current = bind(*snapshot.current);
        if (!current || !queueIds.insert(current->id).second) return false;
        largestQueue = std::max(largestQueue, current->id);
    }
    if (snapshot.nextQueueId <= largestQueue) return false;

    // A playing or paused status needs something to play.
    if (playbackStatus_ != PlaybackStatus::Stopped && !current) return false;

    nextSingerId_ = std::max(nextSingerId_, snapshot.nextSingerId);
    nextQueueId_ = std::max(nextQueueId_, snapshot.nextQueueId);
    singers_ = std::move(singers);
    queue_ = std::move(queue);
    current_ = std::move(current);
    return true;
}

}  // namespace tamo::core
