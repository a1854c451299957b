#include "recovery_writer.h"

#include "fixed_paths.h"
#include "file_kind.h"
#include "json_text.h"
#include "media_stamp.h"
#include "recovery_format.h"
#include "recovery_paths.h"
#include "replace_commit.h"
#include "text.h"
#include "verified_copy.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <system_error>

namespace tamo::shell {
namespace {

namespace fs = std::filesystem;
using core::HistoryEntry;
using core::QueueEntry;
using core::Song;

constexpr std::uint64_t kBaseEstimate = 514;
constexpr std::uint64_t kSingerEstimate = 66;
constexpr std::uint64_t kEntryEstimate = 256;
constexpr std::uint64_t kHistoryEstimate = 322;

std::uint64_t estimateText(std::string_view text) {
    std::uint64_t total = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == '"' || byte == '/' || byte == '\\') total += 2;
        else if (byte < 0x20) total += 6;
        else if (byte >= 0x80) total += 3;
        else total += 1;
    }
    return total;
}

std::uint64_t estimateSong(const Song& song) {
    return estimateText(song.path) + estimateText(song.title) + estimateText(song.artist) +
           estimateText(song.format) + estimateText(song.cdgPath);
}

bool isAbsolutePath(std::string_view path) { return !path.empty() && path.front() == '/'; }

// The same limits the reader applies to a stored song.
bool songFits(const Song& song) {
    return isAbsolutePath(song.path) && song.path.size() <= kMaxRecoveryPathBytes &&
           song.title.size() <= kMaxRecoveryTextBytes && song.artist.size() <= kMaxRecoveryTextBytes &&
           song.format.size() <= kMaxRecoveryFormatBytes && song.cdgPath.size() <= kMaxRecoveryPathBytes;
}

bool storedIdFits(std::int32_t id, std::int64_t lowest, std::int64_t highest) { return id >= lowest && id <= highest; }

// A file is only worth writing if it reads back: refuse here whatever the
// reader would call damaged, so a save never replaces a good file by one
// that can't be restored.
bool eventReadsBack(const RecoveryEventView& event, std::string_view mediaFolder) {
    if (mediaFolder.size() > kMaxRecoveryPathBytes || (!mediaFolder.empty() && !isAbsolutePath(mediaFolder)) ||
        mediaFolder.find('\0') != std::string_view::npos)
        return false;
    if (!std::isfinite(event.musicVolume) || event.musicVolume < 0.0 || event.musicVolume > 1.0) return false;
    if (event.singers.size() > core::kMaxSingers || event.queue.size() > core::kMaxQueueEntries ||
        event.history.size() > core::kMaxHistoryEntries)
        return false;
    for (const core::Singer& singer : event.singers) {
        if (!storedIdFits(singer.id, 1, kMaxRecoveryStoredId) || core::trimText(singer.name).empty()) return false;
    }
    const auto entryFits = [](const QueueEntry& entry, std::int64_t highestSinger) {
        return storedIdFits(entry.singerId, 1, highestSinger) && entry.singer.size() <= kMaxRecoveryTextBytes &&
               songFits(entry.song);
    };
    for (const QueueEntry& entry : event.queue) {
        if (!entryFits(entry, kMaxRecoveryStoredId)) return false;
    }
    if (event.current != nullptr && !entryFits(*event.current, kMaxRecoveryStoredId - 1)) return false;
    for (const HistoryEntry& entry : event.history) {
        if (!storedIdFits(entry.singerId, 0, kMaxRecoveryStoredId) || !std::isfinite(entry.playedAt) ||
            entry.playedAt < 0 || entry.singer.size() > kMaxRecoveryTextBytes || !songFits(entry.song))
            return false;
    }
    return true;
}

void appendSongFields(std::string& out, const Song& song, const RelativePathMaker& maker) {
    out.append(",\"songPath\":");
    appendJsonText(out, song.path);
    if (const auto relative = maker.relativeOf(song.path)) {
        out.append(",\"relativePath\":");
        appendJsonText(out, *relative);
    }
}

void appendEntryTail(std::string& out, const Song& song, std::string_view singer) {
    out.append(",\"singer\":");
    appendJsonText(out, singer);
    out.append(",\"title\":");
    appendJsonText(out, song.title);
    out.append(",\"artist\":");
    appendJsonText(out, song.artist);
    out.append(",\"format\":");
    appendJsonText(out, song.format);
    out.append(",\"cdgPath\":");
    appendJsonText(out, song.cdgPath);
}

// The proof that a waiting song is still the file the singer asked for.
// History has no use for it: a performance is kept whatever its file became,
// and leaving it out spares a file lookup per performance on every save.
void appendMediaStamp(std::string& out, const Song& song, MediaStampCache& stamps) {
    const MediaStamp& stamp = stamps.stampOf(song.path);
    out.append(",\"mediaSize\":");
    appendJsonText(out, stamp.size);
    out.append(",\"mediaModified\":");
    appendJsonText(out, stamp.modified);
}

void appendQueueEntry(std::string& out, const QueueEntry& entry, const RelativePathMaker& relative,
                      MediaStampCache& stamps) {
    out.append("{\"singerId\":");
    appendJsonInteger(out, entry.singerId);
    appendSongFields(out, entry.song, relative);
    appendEntryTail(out, entry.song, entry.singer);
    appendMediaStamp(out, entry.song, stamps);
    out.push_back('}');
}

void appendHistoryEntry(std::string& out, const HistoryEntry& entry, const RelativePathMaker& relative) {
    out.append("{\"singerId\":");
    appendJsonInteger(out, entry.singerId);
    appendSongFields(out, entry.song, relative);
    appendEntryTail(out, entry.song, entry.singer);
    out.append(",\"playedAt\":");
    appendJsonDouble(out, entry.playedAt);
    out.push_back('}');
}

std::int64_t elapsedNs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

std::uint64_t estimateRecoveryJsonSize(const RecoveryEventView& event, std::string_view mediaFolder,
                                       const core::SingerStates& singerStates) {
    // Each string the event hands in counts once; the fixed amount per record
    // stands for its keys, numbers and stamps. Only the real text is held to
    // the limit exactly, so the estimate must not refuse what would fit.
    std::uint64_t total = kBaseEstimate + estimateText(mediaFolder);
    const auto over = [&] { return total > kMaxRecoveryFileBytes; };
    if (over()) return total;
    for (const core::Singer& singer : event.singers) {
        total += kSingerEstimate + estimateText(singer.name);
        if (const auto it = singerStates.find(singer.id); it != singerStates.end()) total += estimateText(it->second);
        if (over()) return total;
    }
    for (const QueueEntry& entry : event.queue) {
        total += kEntryEstimate + estimateText(entry.singer) + estimateSong(entry.song);
        if (over()) return total;
    }
    if (event.current != nullptr) {
        total += kEntryEstimate + estimateText(event.current->singer) + estimateSong(event.current->song);
        if (over()) return total;
    }
    for (const HistoryEntry& entry : event.history) {
        total += kHistoryEstimate + estimateText(entry.singer) + estimateSong(entry.song);
        if (over()) return total;
    }
    return total;
}

bool RecoveryJsonSizeEstimate(const RecoveryEventView& event, std::string_view mediaFolder,
                              const core::SingerStates& singerStates) {
    return estimateRecoveryJsonSize(event, mediaFolder, singerStates) <= kMaxRecoveryFileBytes;
}

std::optional<std::string> serialiseEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder,
                                                  std::int64_t playbackPositionMs,
                                                  const core::SingerStates& singerStates) {
    if (!eventReadsBack(event, mediaFolder)) return std::nullopt;
    const std::uint64_t estimate = estimateRecoveryJsonSize(event, mediaFolder, singerStates);
    if (estimate > kMaxRecoveryFileBytes) return std::nullopt;

    // A playing or paused word without a performance on stage would read
    // back as damaged; the core can reach that state, so it is saved as stopped.
    const std::string_view status =
        event.current == nullptr ? std::string_view("stopped") : core::playbackStatusWord(event.playbackStatus);
    if (status != "stopped" && status != "playing" && status != "paused") return std::nullopt;
    if (playbackPositionMs < 0) playbackPositionMs = 0;
    if (playbackPositionMs > kMaxPlaybackPositionMs) playbackPositionMs = kMaxPlaybackPositionMs;

    MediaStampCache stamps;
    const RelativePathMaker relative(mediaFolder);
    std::string out;
    out.reserve(static_cast<std::size_t>(estimate));
    out.append("{\"version\":");
    appendJsonInteger(out, kRecoveryFormatVersion);
    out.append(",\"mediaFolder\":");
    appendJsonText(out, mediaFolder);
    out.append(",\"musicVolume\":");
    appendJsonDouble(out, event.musicVolume);
    out.append(",\"playbackPositionMs\":");
    appendJsonInteger(out, playbackPositionMs);
    out.append(",\"playbackStatus\":");
    appendJsonText(out, status);

    out.append(",\"singers\":[");
    bool first = true;
    for (const core::Singer& singer : event.singers) {
        if (!first) out.push_back(',');
        first = false;
        out.append("{\"id\":");
        appendJsonInteger(out, singer.id);
        out.append(",\"name\":");
        appendJsonText(out, singer.name);
        out.push_back('}');
    }
    // Only the non-default states of singers that still exist, in rotation
    // order; a stale key would make the file unreadable.
    out.append("],\"singerStates\":[");
    first = true;
    for (const core::Singer& singer : event.singers) {
        const auto it = singerStates.find(singer.id);
        if (it == singerStates.end() || (it->second != "Away" && it->second != "Skipped")) continue;
        if (!first) out.push_back(',');
        first = false;
        out.append("{\"singerId\":");
        appendJsonInteger(out, singer.id);
        out.append(",\"state\":");
        appendJsonText(out, it->second);
        out.push_back('}');
    }
    out.append("],\"queue\":[");
    first = true;
    for (const QueueEntry& entry : event.queue) {
        if (!first) out.push_back(',');
        first = false;
        appendQueueEntry(out, entry, relative, stamps);
    }
    out.push_back(']');
    if (event.current != nullptr) {
        out.append(",\"current\":");
        appendQueueEntry(out, *event.current, relative, stamps);
    }
    out.append(",\"history\":[");
    first = true;
    for (const HistoryEntry& entry : event.history) {
        if (!first) out.push_back(',');
        first = false;
        appendHistoryEntry(out, entry, relative);
    }
    out.append("]}");
    if (out.empty() || out.size() > kMaxRecoveryFileBytes) return std::nullopt;
    return out;
}

RecoveryFiles RecoveryFiles::standard() { return {core::recoveryFilePath(), core::recoveryBackupPath()}; }

bool commitRecoveryText(std::string_view text, const RecoveryFiles& files) {
    if (files.primary.empty() || files.backup.empty() || text.empty() || text.size() > kMaxRecoveryFileBytes)
        return false;
    std::error_code error;
    fs::create_directories(files.primary.parent_path(), error);
    if (error) return false;

    core::ReplaceCommit commit(files.primary, {files.backup});
    if (!commit.begin()) return false;
    if (!commit.writeTemporary(text)) return false;
    // The backup becomes the previous good save only now that the new one
    // is verified on disk beside it.
    if (commit.targetKind() == core::FileKind::RegularFile && !core::copyVerifiedFile(files.primary, files.backup))
        return false;
    const core::FileKind backupKind = core::getFileKind(files.backup);
    if (backupKind != core::FileKind::RegularFile && backupKind != core::FileKind::Missing) return false;
    return commit.commit();
}

bool WriteEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder, std::int64_t playbackPositionMs,
                        const core::SingerStates& singerStates, const RecoveryFiles& files,
                        RecoveryWriteTimings* timings) {
    try {
        const auto started = std::chrono::steady_clock::now();
        const std::optional<std::string> text =
            serialiseEventRecovery(event, mediaFolder, playbackPositionMs, singerStates);
        if (timings != nullptr) timings->serialiseNs = elapsedNs(started);
        if (!text) return false;
        const auto committing = std::chrono::steady_clock::now();
        const bool ok = commitRecoveryText(*text, files);
        if (timings != nullptr) {
            timings->commitNs = elapsedNs(committing);
            timings->bytes = text->size();
        }
        return ok;
    } catch (...) {
        // Out of memory while building the text: the old files stand.
        return false;
    }
}

bool WriteEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder, std::int64_t playbackPositionMs,
                        const core::SingerStates& singerStates) {
    return WriteEventRecovery(event, mediaFolder, playbackPositionMs, singerStates, RecoveryFiles::standard());
}

}  // namespace tamo::shell
