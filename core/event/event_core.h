#pragma once

#include "media_index.h"
#include "records.h"

#include <filesystem>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

struct OperatorSnapshot;

// The song library and the live event in one object. UI thread only: it has
// no locks, and background work gets copies. Mutators refuse bad input by
// returning 0 or false and change nothing.
class EventCore {
public:
    EventCore() = default;

    // Library.
    const std::vector<Song>& songs() const { return songs_; }
    std::size_t songCount() const { return songs_.size(); }
    const Song* songById(std::int32_t id) const;
    const Song* songByPath(std::string_view path) const;
    // The library's record for a copied song: by id with an equal path,
    // else by path. Null when the file has left the library.
    const Song* findLibrarySong(const Song& copy) const;

    std::int32_t addSong(std::string_view path, std::string_view title, std::string_view artist,
                         std::string_view format);
    std::int32_t upsertSong(Song song);
    // Replaces the library, keeping identities by path, and rebinds the event
    // to it. On any failure the old library and event stay and it returns false.
    bool replaceLibrary(std::vector<Song> incoming);
    // Plain scan of a folder merged into the library (`scan_folder`). Returns
    // the number of songs scanned; scan failures, length and overflow errors
    // are thrown and leave the library as it was.
    std::size_t scanFolderIntoLibrary(const std::filesystem::path& folder);
    // Plain scan of a folder that replaces the library.
    std::size_t replaceLibraryFromFolder(const std::filesystem::path& folder);
    // A verified load through the index cache that replaces the library;
    // used when an event comes back from its recovery file.
    std::size_t replaceLibraryFromIndex(const std::filesystem::path& root, const std::filesystem::path& cachePath,
                                        const ScanProgress& progress);

    // Event.
    const std::vector<Singer>& singers() const { return singers_; }
    const std::vector<QueueEntry>& queue() const { return queue_; }
    const std::optional<QueueEntry>& current() const { return current_; }
    const std::vector<HistoryEntry>& history() const { return history_; }
    PlaybackStatus playbackStatus() const { return playbackStatus_; }
    double musicVolume() const { return musicVolume_; }
    std::int32_t nextSongId() const { return nextSongId_; }
    std::int32_t nextSingerId() const { return nextSingerId_; }
    std::int32_t nextQueueId() const { return nextQueueId_; }
    std::int32_t nextHistoryId() const { return nextHistoryId_; }
    const Singer* singerById(std::int32_t id) const;

    EventSnapshot snapshot() const;
    // All or nothing: validates a complete copy and only then replaces the event.
    bool restoreEvent(EventSnapshot snapshot);

    // The rotation as the undo engine sees it, and its all-or-nothing way
    // back in: songs are re-read from the library, counters never fall, and
    // history, playback status and volume are left alone.
    OperatorSnapshot operatorSnapshot() const;
    bool applyOperatorSnapshot(const OperatorSnapshot& snapshot);

    void setMusicVolume(double value);
    // Status only: the core starts no media.
    void setPlaybackStatus(PlaybackStatus status) { playbackStatus_ = status; }

    // Rotation.
    std::int32_t addSinger(std::string_view name);
    bool renameSinger(std::int32_t singerId, std::string_view name);
    bool deleteSinger(std::int32_t singerId);
    bool moveSingerBefore(std::int32_t singerId, std::int32_t beforeSingerId);
    std::int32_t enqueueForSinger(std::int32_t songId, std::int32_t singerId);
    std::int32_t enqueueNewSinger(std::int32_t songId, std::string_view name);
    bool removeQueuedEntry(std::int32_t queueId);
    bool moveQueuedEntry(std::int32_t queueId, std::int32_t direction);
    bool moveQueuedEntryToTop(std::int32_t queueId);
    bool reassignQueuedEntry(std::int32_t queueId, std::int32_t singerId, std::int32_t beforeQueueId);
    bool activateQueuedEntry(std::int32_t queueId);
    bool advance();
    bool advanceForSinger(std::int32_t singerId);
    bool previous();
    void resetEvent();
    bool restoreCurrent(std::int32_t songId, std::int32_t singerId);
    bool restoreHistoryEntry(std::int32_t songId, std::int32_t singerId, std::string_view singerName,
                             double playedAt);
    bool restoreHistoryEntry(const Song& song, std::int32_t singerId, std::string_view singerName,
                             double playedAt);
    bool replayHistoryEntry(std::int32_t historyEntryId, std::int32_t singerId);
    void clearCurrent();
    void clearQueue();

private:
    friend struct EventCoreAccess;

    void rebuildSongIndexes();
    bool appendHistory(HistoryEntry entry);
    bool archiveCurrent();
    std::size_t queueIndexOf(std::int32_t queueId) const;
    std::size_t singerIndexOf(std::int32_t singerId) const;
    std::string singerNameOr(std::int32_t singerId, std::string_view fallback) const;

    std::int32_t nextSongId_ = 1;
    std::int32_t nextSingerId_ = 1;
    std::int32_t nextQueueId_ = 1;
    std::int32_t nextHistoryId_ = 1;
    std::vector<Song> songs_;
    std::vector<std::uint32_t> songIndexById_;
    std::vector<std::uint32_t> songIndexByPath_;
    std::vector<Singer> singers_;
    std::vector<QueueEntry> queue_;
    std::optional<QueueEntry> current_;
    std::vector<HistoryEntry> history_;
    PlaybackStatus playbackStatus_ = PlaybackStatus::Stopped;
    double musicVolume_ = 0.85;
};

// Seconds since the Unix epoch from the system clock, in 100 ns steps.
double currentPlayedAt();

}  // namespace tamo::core
