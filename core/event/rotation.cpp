#include "event_core.h"

#include "text.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace tamo::core {

std::size_t EventCore::queueIndexOf(std::int32_t queueId) const {
    const auto it = std::find_if(queue_.begin(), queue_.end(), [&](const QueueEntry& e) { return e.id == queueId; });
    return static_cast<std::size_t>(it - queue_.begin());
}

std::size_t EventCore::singerIndexOf(std::int32_t singerId) const {
    const auto it = std::find_if(singers_.begin(), singers_.end(), [&](const Singer& s) { return s.id == singerId; });
    return static_cast<std::size_t>(it - singers_.begin());
}

std::string EventCore::singerNameOr(std::int32_t singerId, std::string_view fallback) const {
    const Singer* singer = singerById(singerId);
    return singer != nullptr ? singer->name : std::string(fallback);
}

std::int32_t EventCore::addSinger(std::string_view name) {
    if (singers_.size() >= kMaxSingers || !isValidId(nextSingerId_)) return 0;
    std::string trimmed = trimText(name);
    if (trimmed.empty()) trimmed = "Singer";
    singers_.push_back(Singer{nextSingerId_, std::move(trimmed)});
    return nextSingerId_++;
}

bool EventCore::renameSinger(std::int32_t singerId, std::string_view name) {
    std::string trimmed = trimText(name);
    const std::size_t index = singerIndexOf(singerId);
    if (trimmed.empty() || index == singers_.size()) return false;
    for (QueueEntry& entry : queue_) {
        if (entry.singerId == singerId) entry.singer = trimmed;
    }
    if (current_ && current_->singerId == singerId) current_->singer = trimmed;
    singers_[index].name = std::move(trimmed);
    return true;
}

bool EventCore::deleteSinger(std::int32_t singerId) {
    const std::size_t index = singerIndexOf(singerId);
    if (index == singers_.size()) return false;
    singers_.erase(singers_.begin() + static_cast<std::ptrdiff_t>(index));
    std::erase_if(queue_, [&](const QueueEntry& e) { return e.singerId == singerId; });
    if (current_ && current_->singerId == singerId) clearCurrent();
    return true;
}

bool EventCore::moveSingerBefore(std::int32_t singerId, std::int32_t beforeSingerId) {
    if (singerId == beforeSingerId) return true;
    const std::size_t from = singerIndexOf(singerId);
    if (from == singers_.size()) return false;
    if (beforeSingerId != 0 && singerIndexOf(beforeSingerId) == singers_.size()) return false;
    const auto first = singers_.begin();
    if (beforeSingerId == 0) {
        std::rotate(first + static_cast<std::ptrdiff_t>(from), first + static_cast<std::ptrdiff_t>(from) + 1,
                    singers_.end());
        return true;
    }
    const std::size_t to = singerIndexOf(beforeSingerId);
    if (from < to) {
        // Out of `from`, in front of `to`: the singers between shift up one.
        std::rotate(first + static_cast<std::ptrdiff_t>(from), first + static_cast<std::ptrdiff_t>(from) + 1,
                    first + static_cast<std::ptrdiff_t>(to));
    } else {
        std::rotate(first + static_cast<std::ptrdiff_t>(to), first + static_cast<std::ptrdiff_t>(from),
                    first + static_cast<std::ptrdiff_t>(from) + 1);
    }
    return true;
}

std::int32_t EventCore::enqueueForSinger(std::int32_t songId, std::int32_t singerId) {
    if (queue_.size() >= kMaxQueueEntries) return 0;
    const Song* song = songById(songId);
    const Singer* singer = singerById(singerId);
    if (song == nullptr || singer == nullptr || !isValidId(nextQueueId_)) return 0;
    queue_.push_back(QueueEntry{nextQueueId_, singerId, *song, singer->name});
    return nextQueueId_++;
}

std::int32_t EventCore::enqueueNewSinger(std::int32_t songId, std::string_view name) {
    if (songById(songId) == nullptr || singers_.size() >= kMaxSingers || queue_.size() >= kMaxQueueEntries ||
        !isValidId(nextSingerId_) || !isValidId(nextQueueId_))
        return 0;
    const std::int32_t singerId = addSinger(name);
    if (singerId == 0) return 0;
    const std::int32_t queueId = enqueueForSinger(songId, singerId);
    if (queueId == 0) {
        // The one place a counter goes back: the singer never really existed.
        singers_.pop_back();
        nextSingerId_ = singerId;
    }
    return queueId;
}

bool EventCore::removeQueuedEntry(std::int32_t queueId) {
    const std::size_t index = queueIndexOf(queueId);
    if (index == queue_.size()) return false;
    queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(index));
    return true;
}

bool EventCore::moveQueuedEntry(std::int32_t queueId, std::int32_t direction) {
    if (direction == 0) return false;
    const std::size_t index = queueIndexOf(queueId);
    if (index == queue_.size()) return false;
    const std::int32_t singerId = queue_[index].singerId;
    if (direction > 0) {
        for (std::size_t i = index + 1; i < queue_.size(); ++i) {
            if (queue_[i].singerId == singerId) {
                std::swap(queue_[index], queue_[i]);
                return true;
            }
        }
    } else {
        for (std::size_t i = index; i-- > 0;) {
            if (queue_[i].singerId == singerId) {
                std::swap(queue_[index], queue_[i]);
                return true;
            }
        }
    }
    return false;
}

bool EventCore::moveQueuedEntryToTop(std::int32_t queueId) {
    const std::size_t index = queueIndexOf(queueId);
    if (index == queue_.size()) return false;
    const std::int32_t singerId = queue_[index].singerId;
    // Repeated swaps with the nearest earlier entry of the same singer amount
    // to rotating the entry through that singer's earlier positions, which
    // one pass does without searching again after every swap.
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < index; ++i) {
        if (queue_[i].singerId == singerId) positions.push_back(i);
    }
    if (positions.empty()) return false;
    QueueEntry moving = std::move(queue_[index]);
    std::size_t hole = index;
    for (std::size_t k = positions.size(); k-- > 0;) {
        queue_[hole] = std::move(queue_[positions[k]]);
        hole = positions[k];
    }
    queue_[hole] = std::move(moving);
    return true;
}

bool EventCore::reassignQueuedEntry(std::int32_t queueId, std::int32_t singerId, std::int32_t beforeQueueId) {
    const Singer* singer = singerById(singerId);
    if (singer == nullptr) return false;
    if (queueId == beforeQueueId) return true;
    const std::size_t index = queueIndexOf(queueId);
    if (index == queue_.size()) return false;
    if (beforeQueueId != 0) {
        const std::size_t before = queueIndexOf(beforeQueueId);
        if (before == queue_.size() || queue_[before].singerId != singerId) return false;
    }
    QueueEntry entry = queue_[index];
    entry.singerId = singerId;
    entry.singer = singer->name;
    queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(index));
    std::size_t insertAt = queue_.size();
    if (beforeQueueId != 0) {
        insertAt = queueIndexOf(beforeQueueId);
    } else {
        for (std::size_t i = queue_.size(); i-- > 0;) {
            if (queue_[i].singerId == singerId) {
                insertAt = i + 1;
                break;
            }
        }
    }
    queue_.insert(queue_.begin() + static_cast<std::ptrdiff_t>(insertAt), std::move(entry));
    return true;
}

bool EventCore::activateQueuedEntry(std::int32_t queueId) {
    const std::size_t index = queueIndexOf(queueId);
    if (index == queue_.size()) return false;
    std::vector<QueueEntry> next;
    next.reserve(queue_.size());
    if (current_) next.push_back(*current_);
    for (std::size_t i = 0; i < queue_.size(); ++i) {
        if (i != index) next.push_back(queue_[i]);
    }
    QueueEntry activated = std::move(queue_[index]);
    queue_ = std::move(next);
    current_ = std::move(activated);
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

bool EventCore::appendHistory(HistoryEntry entry) {
    if (!isValidId(nextHistoryId_)) return false;
    entry.id = nextHistoryId_;
    if (history_.size() >= kMaxHistoryEntries) {
        history_.erase(history_.begin(),
                       history_.begin() + static_cast<std::ptrdiff_t>(history_.size() - (kMaxHistoryEntries - 1)));
    }
    history_.push_back(std::move(entry));
    ++nextHistoryId_;
    return true;
}

bool EventCore::archiveCurrent() {
    if (!current_) return true;
    HistoryEntry entry{0, current_->singerId, current_->song, current_->singer, currentPlayedAt()};
    if (!appendHistory(std::move(entry))) return false;
    current_.reset();
    return true;
}

bool EventCore::advance() {
    if (!archiveCurrent()) return false;
    if (queue_.empty()) return false;
    current_ = std::move(queue_.front());
    queue_.erase(queue_.begin());
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

bool EventCore::advanceForSinger(std::int32_t singerId) {
    if (singerById(singerId) == nullptr) return false;
    const auto it =
        std::find_if(queue_.begin(), queue_.end(), [&](const QueueEntry& e) { return e.singerId == singerId; });
    if (it == queue_.end()) return false;
    const auto index = it - queue_.begin();
    if (!archiveCurrent()) return false;
    current_ = std::move(queue_[static_cast<std::size_t>(index)]);
    queue_.erase(queue_.begin() + index);
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

bool EventCore::previous() {
    if (history_.empty()) return false;
    std::size_t found = history_.size();
    for (std::size_t i = history_.size(); i-- > 0;) {
        const HistoryEntry& entry = history_[i];
        const Song* song = songById(entry.song.id);
        if (singerById(entry.singerId) != nullptr && song != nullptr && song->path == entry.song.path) {
            found = i;
            break;
        }
    }
    if (found == history_.size()) return false;
    if (current_ && queue_.size() >= kMaxQueueEntries) return false;
    if (!isValidId(nextQueueId_)) return false;

    if (current_) {
        queue_.insert(queue_.begin(), std::move(*current_));
        current_.reset();
    }
    HistoryEntry entry = std::move(history_[found]);
    history_.erase(history_.begin() + static_cast<std::ptrdiff_t>(found));
    current_ = QueueEntry{nextQueueId_++, entry.singerId, std::move(entry.song), singerNameOr(entry.singerId, "")};
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

void EventCore::resetEvent() {
    singers_.clear();
    queue_.clear();
    current_.reset();
    history_.clear();
    playbackStatus_ = PlaybackStatus::Stopped;
}

bool EventCore::restoreCurrent(std::int32_t songId, std::int32_t singerId) {
    const Song* song = songById(songId);
    const Singer* singer = singerById(singerId);
    if (song == nullptr || singer == nullptr || !isValidId(nextQueueId_)) return false;
    current_ = QueueEntry{nextQueueId_++, singerId, *song, singer->name};
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

bool EventCore::restoreHistoryEntry(std::int32_t songId, std::int32_t singerId, std::string_view singerName,
                                    double playedAt) {
    const Song* song = songById(songId);
    if (song == nullptr) return false;
    const Song copy = *song;
    return restoreHistoryEntry(copy, singerId, singerName, playedAt);
}

bool EventCore::restoreHistoryEntry(const Song& song, std::int32_t singerId, std::string_view singerName,
                                    double playedAt) {
    if (song.path.empty() || singerId < 0 || !std::isfinite(playedAt) || playedAt < 0 ||
        !isValidId(nextHistoryId_))
        return false;
    Song bound;
    if (const Song* found = findLibrarySong(song)) {
        bound = *found;
    } else {
        bound = song;
        bound.id = 0;
        if (bound.title.empty()) bound.title = std::filesystem::path(bound.path).stem().string();
        if (bound.title.empty()) bound.title = "Unknown song";
    }
    std::string name = trimText(singerName);
    if (name.empty()) name = singerNameOr(singerId, "Singer");
    return appendHistory(HistoryEntry{0, singerId, std::move(bound), std::move(name), playedAt});
}

bool EventCore::replayHistoryEntry(std::int32_t historyEntryId, std::int32_t singerId) {
    const auto it = std::find_if(history_.begin(), history_.end(),
                                 [&](const HistoryEntry& e) { return e.id == historyEntryId; });
    const Singer* singer = singerById(singerId);
    if (it == history_.end() || singer == nullptr) return false;
    const Song* song = songById(it->song.id);
    if (song == nullptr || song->path != it->song.path) return false;

    if (current_ && current_->singerId == singerId && current_->song.id == song->id &&
        current_->song.path == song->path) {
        playbackStatus_ = PlaybackStatus::Stopped;
        return true;
    }
    if (current_ && queue_.size() >= kMaxQueueEntries) return false;
    if (!isValidId(nextQueueId_)) return false;

    std::vector<QueueEntry> next;
    next.reserve(queue_.size() + 1);
    if (current_) next.push_back(*current_);
    next.insert(next.end(), queue_.begin(), queue_.end());
    QueueEntry replay{nextQueueId_, singerId, *song, singer->name};
    queue_ = std::move(next);
    current_ = std::move(replay);
    ++nextQueueId_;
    playbackStatus_ = PlaybackStatus::Stopped;
    return true;
}

void EventCore::clearCurrent() {
    current_.reset();
    playbackStatus_ = PlaybackStatus::Stopped;
}

void EventCore::clearQueue() { queue_.clear(); }

}  // namespace tamo::core
