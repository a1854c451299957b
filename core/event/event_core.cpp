#include "event_core.h"

#include "build_song.h"
#include "karaoke_graphics.h"
#include "text.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace tamo::core {

double currentPlayedAt() {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    const auto ticks = std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch());
    return static_cast<double>(ticks.count()) / 1e7;
}

const Song* EventCore::songById(std::int32_t id) const {
    const auto it = std::lower_bound(songIndexById_.begin(), songIndexById_.end(), id,
                                     [this](std::uint32_t pos, std::int32_t key) { return songs_[pos].id < key; });
    if (it == songIndexById_.end() || songs_[*it].id != id) return nullptr;
    return &songs_[*it];
}

const Song* EventCore::songByPath(std::string_view path) const {
    const auto it =
        std::lower_bound(songIndexByPath_.begin(), songIndexByPath_.end(), path,
                         [this](std::uint32_t pos, std::string_view key) { return songs_[pos].path < key; });
    if (it == songIndexByPath_.end() || songs_[*it].path != path) return nullptr;
    return &songs_[*it];
}

const Song* EventCore::findLibrarySong(const Song& copy) const {
    if (const Song* byId = songById(copy.id); byId != nullptr && byId->path == copy.path) return byId;
    return songByPath(copy.path);
}

void EventCore::rebuildSongIndexes() {
    songIndexById_.resize(songs_.size());
    std::iota(songIndexById_.begin(), songIndexById_.end(), 0U);
    songIndexByPath_ = songIndexById_;
    std::stable_sort(songIndexById_.begin(), songIndexById_.end(),
                     [this](std::uint32_t a, std::uint32_t b) { return songs_[a].id < songs_[b].id; });
    std::stable_sort(songIndexByPath_.begin(), songIndexByPath_.end(),
                     [this](std::uint32_t a, std::uint32_t b) { return songs_[a].path < songs_[b].path; });
}

std::int32_t EventCore::addSong(std::string_view path, std::string_view title, std::string_view artist,
                                std::string_view format) {
    if (path.empty()) return 0;
    const std::string trimmedTitle = trimText(title);
    const std::string trimmedFormat = trimText(format);
    Song song;
    if (!trimmedTitle.empty()) {
        song.path = std::string(path);
        song.title = trimmedTitle;
        song.artist = trimText(artist);
        song.format = trimmedFormat;
        song.cdgPath = findKaraokeGraphics(path);
    } else {
        song = buildSong(0, path, true);
        if (!trimmedFormat.empty()) song.format = trimmedFormat;
    }
    return upsertSong(std::move(song));
}

std::int32_t EventCore::upsertSong(Song song) {
    if (song.path.empty()) return 0;
    const auto at =
        std::lower_bound(songIndexByPath_.begin(), songIndexByPath_.end(), song.path,
                         [this](std::uint32_t pos, const std::string& key) { return songs_[pos].path < key; });
    if (at != songIndexByPath_.end() && songs_[*at].path == song.path) {
        Song& existing = songs_[*at];
        existing.title = std::move(song.title);
        existing.artist = std::move(song.artist);
        existing.format = std::move(song.format);
        existing.cdgPath = std::move(song.cdgPath);
        return existing.id;
    }
    if (!isValidId(nextSongId_)) return 0;
    if (songs_.size() >= 0xFFFFFFFFU) throw std::length_error("Media library is too large");
    const auto insertAt = at - songIndexByPath_.begin();
    song.id = nextSongId_;
    try {
        songs_.push_back(std::move(song));
        songIndexById_.reserve(songs_.size());
        songIndexByPath_.reserve(songs_.size());
    } catch (const std::length_error&) {
        if (songs_.size() > songIndexById_.size()) songs_.pop_back();
        throw std::length_error("Media library is too large");
    }
    const auto position = static_cast<std::uint32_t>(songs_.size() - 1);
    // The counter is past every id in use, so the new id sorts last.
    songIndexById_.push_back(position);
    songIndexByPath_.insert(songIndexByPath_.begin() + insertAt, position);
    ++nextSongId_;
    return songs_.back().id;
}

const Singer* EventCore::singerById(std::int32_t id) const {
    const std::size_t index = singerIndexOf(id);
    return index == singers_.size() ? nullptr : &singers_[index];
}

EventSnapshot EventCore::snapshot() const {
    return EventSnapshot{nextSingerId_, nextQueueId_, nextHistoryId_, singers_, queue_,
                         current_,      history_,     playbackStatus_, musicVolume_};
}

void EventCore::setMusicVolume(double value) {
    if (!std::isfinite(value)) return;
    musicVolume_ = std::clamp(value, 0.0, 1.0);
}

bool EventCore::restoreEvent(EventSnapshot next) {
    if (next.singers.size() > kMaxSingers || next.queue.size() > kMaxQueueEntries ||
        next.history.size() > kMaxHistoryEntries)
        return false;

    std::unordered_map<std::int32_t, const Singer*> singerIds;
    singerIds.reserve(next.singers.size());
    std::int32_t largestSinger = 0;
    for (Singer& singer : next.singers) {
        singer.name = trimText(singer.name);
        if (singer.id < 1 || singer.name.empty()) return false;
        if (!singerIds.emplace(singer.id, &singer).second) return false;
        largestSinger = std::max(largestSinger, singer.id);
    }
    if (next.nextSingerId <= largestSinger) return false;

    auto bindEntry = [&](QueueEntry& entry) {
        if (entry.id < 1) return false;
        const auto singer = singerIds.find(entry.singerId);
        if (singer == singerIds.end()) return false;
        const Song* song = findLibrarySong(entry.song);
        if (song == nullptr) return false;
        entry.song = *song;
        entry.singer = singer->second->name;
        return true;
    };

    std::unordered_set<std::int32_t> queueIds;
    queueIds.reserve(next.queue.size() + 1);
    std::int32_t largestQueue = 0;
    for (QueueEntry& entry : next.queue) {
        if (!bindEntry(entry) || !queueIds.insert(entry.id).second) return false;
        largestQueue = std::max(largestQueue, entry.id);
    }
    if (next.current) {
        if (!bindEntry(*next.current) || queueIds.contains(next.current->id)) return false;
        largestQueue = std::max(largestQueue, next.current->id);
    }
    if (next.nextQueueId <= largestQueue) return false;

    std::unordered_set<std::int32_t> historyIds;
    historyIds.reserve(next.history.size());
    std::int32_t largestHistory = 0;
    for (HistoryEntry& entry : next.history) {
        entry.singer = trimText(entry.singer);
        if (entry.singer.empty()) {
            const auto singer = singerIds.find(entry.singerId);
            entry.singer = singer != singerIds.end() ? singer->second->name : "Singer";
        }
        if (entry.id < 1 || entry.singerId < 0) return false;
        if (!std::isfinite(entry.playedAt) || entry.playedAt < 0) return false;
        if (!historyIds.insert(entry.id).second) return false;
        if (const Song* song = findLibrarySong(entry.song)) {
            entry.song = *song;
        } else {
            if (entry.song.path.empty() || entry.song.title.empty()) return false;
            entry.song.id = 0;
        }
        largestHistory = std::max(largestHistory, entry.id);
    }
    if (next.nextHistoryId <= largestHistory) return false;

    if (!std::isfinite(next.musicVolume)) return false;
    const auto status = static_cast<std::int32_t>(next.playbackStatus);
    if (status != 0 && !((status == 1 || status == 2) && next.current)) return false;

    nextSingerId_ = next.nextSingerId;
    nextQueueId_ = next.nextQueueId;
    nextHistoryId_ = next.nextHistoryId;
    singers_ = std::move(next.singers);
    queue_ = std::move(next.queue);
    current_ = std::move(next.current);
    history_ = std::move(next.history);
    playbackStatus_ = next.playbackStatus;
    musicVolume_ = std::clamp(next.musicVolume, 0.0, 1.0);
    return true;
}

}  // namespace tamo::core
