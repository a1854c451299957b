#include "event_core.h"

#include "media_folder_scan.h"
#include "media_index_load.h"

#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace tamo::core {

bool EventCore::replaceLibrary(std::vector<Song> incoming) {
    std::vector<Song> oldSongs = std::move(songs_);
    std::vector<std::uint32_t> oldById = std::move(songIndexById_);
    std::vector<std::uint32_t> oldByPath = std::move(songIndexByPath_);
    const std::int32_t oldNextSongId = nextSongId_;
    const EventSnapshot oldEvent = snapshot();

    auto restoreOld = [&] {
        songs_ = std::move(oldSongs);
        songIndexById_ = std::move(oldById);
        songIndexByPath_ = std::move(oldByPath);
        nextSongId_ = oldNextSongId;
    };

    try {
        std::unordered_map<std::string_view, std::int32_t> oldIds;
        oldIds.reserve(oldSongs.size());
        std::int32_t counter = nextSongId_;
        for (const Song& song : oldSongs) {
            oldIds.emplace(song.path, song.id);
            if (song.id == 0x7FFFFFFF) {
                counter = 0x7FFFFFFF;
            } else if (song.id > 0 && counter != 0x7FFFFFFF && song.id + 1 > counter) {
                counter = song.id + 1;
            }
        }

        std::vector<Song> next;
        next.reserve(incoming.size());
        std::unordered_map<std::string_view, std::size_t> positions;
        positions.reserve(incoming.size());
        for (Song& song : incoming) {
            if (song.path.empty()) continue;
            if (const auto seen = positions.find(song.path); seen != positions.end()) {
                Song& kept = next[seen->second];
                kept.title = std::move(song.title);
                kept.artist = std::move(song.artist);
                kept.format = std::move(song.format);
                kept.cdgPath = std::move(song.cdgPath);
                continue;
            }
            if (const auto old = oldIds.find(song.path); old != oldIds.end()) {
                song.id = old->second;
            } else {
                if (!isValidId(counter)) {
                    restoreOld();
                    return false;
                }
                song.id = counter++;
            }
            next.push_back(std::move(song));
            // Keyed by the kept copy: `next` never reallocates (reserved above).
            positions.emplace(next.back().path, next.size() - 1);
        }
        positions.clear();
        if (next.size() > 0xFFFFFFFFU) throw std::length_error("Media library is too large");

        songs_ = std::move(next);
        nextSongId_ = counter;
        rebuildSongIndexes();

        EventSnapshot rebound = oldEvent;
        auto rebind = [this](Song& song) {
            const Song* found = songByPath(song.path);
            if (found == nullptr) return false;
            song = *found;
            return true;
        };
        std::erase_if(rebound.queue, [&](QueueEntry& entry) { return !rebind(entry.song); });
        if (rebound.current && !rebind(rebound.current->song)) rebound.current.reset();
        for (HistoryEntry& entry : rebound.history) {
            if (!rebind(entry.song)) entry.song.id = 0;
        }
        if (!restoreEvent(std::move(rebound))) {
            restoreOld();
            return false;
        }
        return true;
    } catch (...) {
        restoreOld();
        restoreEvent(oldEvent);
        throw;
    }
}

std::size_t EventCore::scanFolderIntoLibrary(const std::filesystem::path& folder) {
    std::vector<Song> scanned = scanMediaFolder(folder);
    if (scanned.size() >= 0x80000000ULL) throw std::length_error("Media folder contains too many songs");
    if (scanned.empty()) return 0;
    const std::size_t count = scanned.size();
    std::vector<Song> merged;
    if (songs_.size() > merged.max_size() - count || songs_.size() + count > 0xFFFFFFFFULL)
        throw std::length_error("Additive media library is too large");
    merged.reserve(songs_.size() + count);
    merged.insert(merged.end(), songs_.begin(), songs_.end());
    merged.insert(merged.end(), std::make_move_iterator(scanned.begin()), std::make_move_iterator(scanned.end()));
    if (!replaceLibrary(std::move(merged))) throw std::overflow_error("Song identity space is exhausted");
    return count;
}

std::size_t EventCore::replaceLibraryFromFolder(const std::filesystem::path& folder) {
    std::vector<Song> scanned = scanMediaFolder(folder);
    const std::size_t count = scanned.size();
    if (!replaceLibrary(std::move(scanned))) throw std::overflow_error("Song identity space is exhausted");
    return count;
}

std::size_t EventCore::replaceLibraryFromIndex(const std::filesystem::path& root,
                                               const std::filesystem::path& cachePath,
                                               const ScanProgress& progress) {
    MediaIndexLoad loaded = loadMediaIndex(root, cachePath, MediaIndexMode::VerifyCache, progress);
    const std::size_t count = loaded.songs.size();
    if (!replaceLibrary(std::move(loaded.songs))) throw std::overflow_error("Song identity space is exhausted");
    return count;
}

}  // namespace tamo::core
