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

// What the applied snapshot does with an entry that the event holds now.
enum class Standing : std::uint8_t { Unused, Replaced, Moved };

// Where each entry of the applied snapshot comes from: the event's own
// entry, moved when nothing in it changes, or a fresh copy.
struct EntrySource {
    bool fresh = false;
    bool placed = false;
    std::uint32_t index = 0;
};

// Rearranges `queue` so that entry i comes from sources[i]: a standing entry
// of `queue` (marked Moved in `use`) or fresh[index]. Entries that
// keep their place are not touched. Chains start at the places whose entry
// nobody wants and follow each entry taken out to its old place; what is
// left are cycles, closed through one carried entry. Capacity for the new
// length must be reserved: nothing here allocates or throws.
void arrangeQueue(std::vector<QueueEntry>& queue, std::vector<EntrySource>& sources,
                  std::vector<QueueEntry>& fresh, const std::vector<Standing>& use) {
    const std::size_t standing = queue.size();
    const std::size_t length = sources.size();
    if (length > standing) queue.resize(length);

    // Places `at` from its source; returns the place that this emptied, if any.
    auto place = [&](std::size_t at) -> std::size_t {
        EntrySource& source = sources[at];
        source.placed = true;
        if (source.fresh) {
            queue[at] = std::move(fresh[source.index]);
            return length;
        }
        if (source.index == at) return length;
        queue[at] = std::move(queue[source.index]);
        return source.index;
    };

    for (std::size_t start = 0; start < length; ++start) {
        const EntrySource& source = sources[start];
        if (!source.fresh && source.index == start) {
            sources[start].placed = true;
            continue;
        }
        const bool free = start >= standing || use[start] != Standing::Moved;
        if (source.placed || !free) continue;
        for (std::size_t at = start; at < length && !sources[at].placed;) at = place(at);
    }
    for (std::size_t start = 0; start < length; ++start) {
        if (sources[start].placed) continue;
        QueueEntry carried = std::move(queue[start]);
        std::size_t at = start;
        while (sources[at].index != start) at = place(at);
        sources[at].placed = true;
        queue[at] = std::move(carried);
    }
    if (length < standing) queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(length), queue.end());
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
    // library. The event's own ids are unique, so a standing entry met
    // twice, or a newcomer met twice, is a repeated id.
    std::vector<Standing> standingUse(queue_.size(), Standing::Unused);
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

    // A queue holds the same songs many times over; look each up once.
    IdTable<const Song*> songs;
    auto librarySong = [&](std::int32_t songId) {
        const auto [known, inserted] = songs.insert(songId);
        if (inserted) *known = songById(songId);
        return *known;
    };

    std::vector<QueueEntry> fresh;
    std::int32_t largestQueue = 0;
    // Song data comes from the library as it is now, never from the step.
    auto bind = [&](const QueueRef& ref, const QueueEntry* standing, EntrySource& source) {
        if (ref.id < 1) return false;
        const std::uint32_t* singer = singerAt.find(ref.singerId);
        const Song* song = librarySong(ref.songId);
        if (singer == nullptr || song == nullptr) return false;
        const std::string& name = singers[*singer].name;
        largestQueue = std::max(largestQueue, ref.id);
        if (standing != nullptr && standing->singerId == ref.singerId && standing->singer == name &&
            standing->song == *song) {
            return true;
        }
        source = EntrySource{.fresh = true, .index = static_cast<std::uint32_t>(fresh.size())};
        fresh.push_back(QueueEntry{ref.id, ref.singerId, *song, name});
        return true;
    };

    std::vector<EntrySource> sources(snapshot.queue.size());
    for (std::size_t i = 0; i < snapshot.queue.size(); ++i) {
        const QueueRef& ref = snapshot.queue[i];
        const QueueEntry* standing = findStanding(i, ref.id);
        if (standing == nullptr) {
            if (!newcomers.insert(ref.id).second || !bind(ref, nullptr, sources[i])) return false;
            continue;
        }
        const auto place = static_cast<std::size_t>(standing - queue_.data());
        if (standingUse[place] != Standing::Unused) return false;
        sources[i].index = static_cast<std::uint32_t>(place);
        if (!bind(ref, standing, sources[i])) return false;
        standingUse[place] = sources[i].fresh ? Standing::Replaced : Standing::Moved;
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

    if (snapshot.queue.size() > queue_.capacity()) queue_.reserve(snapshot.queue.size());
    // Nothing below can fail: moves only, into reserved room.
    arrangeQueue(queue_, sources, fresh, standingUse);
    if (!snapshot.current) {
        current_.reset();
    } else if (currentSource.fresh) {
        current_ = std::move(fresh[currentSource.index]);
    }
    nextSingerId_ = std::max(nextSingerId_, snapshot.nextSingerId);
    nextQueueId_ = std::max(nextQueueId_, snapshot.nextQueueId);
    singers_ = std::move(singers);
    return true;
}

}  // namespace tamo::core
