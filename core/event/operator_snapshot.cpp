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

// Where each entry of the applied snapshot comes from: the event's own
// entry, moved when nothing in it changes, or a fresh copy.
struct EntrySource {
    bool fresh = false;
    std::uint32_t index = 0;
};

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
    IdTable<std::uint32_t> singerAt(singers.size());
    std::int32_t largestSinger = 0;
    for (std::size_t i = 0; i < singers.size(); ++i) {
        Singer& singer = singers[i];
        if (needsTrim(singer.name)) singer.name = trimText(singer.name);
        if (singer.id < 1 || singer.name.empty()) return false;
        const auto [place, inserted] = singerAt.insert(singer.id);
        if (!inserted) return false;
        *place = static_cast<std::uint32_t>(i);
        largestSinger = std::max(largestSinger, singer.id);
    }
    if (snapshot.nextSingerId <= largestSinger) return false;

    // An undo in a queue of 100000 entries usually touches a handful: the
    // entries that come back exactly as they stand are moved over, found by
    // walking both lists side by side, and only the rest are copied from the
    // library. The event's own ids are unique, so a standing entry claimed
    // twice, or a newcomer seen twice, is a repeated id.
    std::vector<char> claimed(queue_.size(), 0);
    std::optional<IdTable<std::uint32_t>> standingAt;
    IdTable<char> newcomers;
    std::ptrdiff_t shift = 0;
    auto findStanding = [&](std::size_t i, std::int32_t id) -> const QueueEntry* {
        const auto guess = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(i) + shift);
        if (guess < queue_.size() && queue_[guess].id == id) return &queue_[guess];
        if (!standingAt) {
            standingAt.emplace(queue_.size());
            for (std::size_t k = 0; k < queue_.size(); ++k) {
                *standingAt->insert(queue_[k].id).first = static_cast<std::uint32_t>(k);
            }
        }
        const std::uint32_t* at = standingAt->find(id);
        if (at == nullptr) return nullptr;
        shift = static_cast<std::ptrdiff_t>(*at) - static_cast<std::ptrdiff_t>(i);
        return &queue_[*at];
    };

    std::vector<QueueEntry> fresh;
    std::int32_t largestQueue = 0;
    // Song data comes from the library as it is now, never from the step.
    auto bind = [&](const QueueRef& ref, const QueueEntry* standing, EntrySource& source) {
        if (ref.id < 1) return false;
        const std::uint32_t* singer = singerAt.find(ref.singerId);
        const Song* song = songById(ref.songId);
        if (singer == nullptr || song == nullptr) return false;
        const std::string& name = singers[*singer].name;
        largestQueue = std::max(largestQueue, ref.id);
        if (standing != nullptr && standing->singerId == ref.singerId && standing->singer == name &&
            standing->song == *song) {
            return true;
        }
        source = EntrySource{true, static_cast<std::uint32_t>(fresh.size())};
        fresh.push_back(QueueEntry{ref.id, ref.singerId, *song, name});
        return true;
    };

    std::vector<EntrySource> sources(snapshot.queue.size());
    for (std::size_t i = 0; i < snapshot.queue.size(); ++i) {
        const QueueRef& ref = snapshot.queue[i];
        const QueueEntry* standing = findStanding(i, ref.id);
        if (standing != nullptr) {
            const auto place = static_cast<std::size_t>(standing - queue_.data());
            if (claimed[place] != 0) return false;
            claimed[place] = 1;
            sources[i].index = static_cast<std::uint32_t>(place);
        } else if (!newcomers.insert(ref.id).second) {
            return false;
        }
        if (!bind(ref, standing, sources[i])) return false;
    }
    EntrySource currentSource;
    if (snapshot.current) {
        const std::int32_t id = snapshot.current->id;
        const auto sameId = [id](const QueueRef& ref) { return ref.id == id; };
        if (std::any_of(snapshot.queue.begin(), snapshot.queue.end(), sameId)) return false;
        const bool standing = current_ && current_->id == snapshot.current->id;
        if (!bind(*snapshot.current, standing ? &*current_ : nullptr, currentSource)) return false;
    }
    if (snapshot.nextQueueId <= largestQueue) return false;

    // A playing or paused status needs something to play.
    if (playbackStatus_ != PlaybackStatus::Stopped && !snapshot.current) return false;

    std::vector<QueueEntry> queue;
    queue.reserve(snapshot.queue.size());
    // Nothing below can fail: moves only, into reserved room.
    for (const EntrySource& source : sources) {
        queue.push_back(std::move(source.fresh ? fresh[source.index] : queue_[source.index]));
    }
    if (!snapshot.current) {
        current_.reset();
    } else if (currentSource.fresh) {
        current_ = std::move(fresh[currentSource.index]);
    }
    nextSingerId_ = std::max(nextSingerId_, snapshot.nextSingerId);
    nextQueueId_ = std::max(nextQueueId_, snapshot.nextQueueId);
    singers_ = std::move(singers);
    queue_ = std::move(queue);
    return true;
}

}  // namespace tamo::core
