#include "recovery_reader.h"

#include "bounded_read.h"
#include "file_kind.h"
#include "fixed_paths.h"
#include "json_text.h"
#include "media_folder_scan.h"
#include "media_index_load.h"
#include "media_stamp.h"
#include "recovery_paths.h"
#include "text.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <system_error>
#include <unordered_map>
#include <unordered_set>

namespace tamo::shell {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using core::Song;

// Far deeper than any recovery file, far shallower than any stack.
constexpr int kMaxJsonNesting = 64;

enum class EntryKind { Queue, Current, History };

struct StoredEntry {
    std::int64_t singerId = 0;
    std::string songPath;
    std::string relativePath;
    std::string singer;
    std::string title;
    std::string artist;
    std::string format;
    std::string cdgPath;
    std::string mediaSize;
    std::string mediaModified;
    double playedAt = 0.0;
};

struct StoredSinger {
    std::int64_t id = 0;
    std::string name;
};

struct StoredState {
    std::int64_t singerId = 0;
    std::string state;
};

const Json* member(const Json& object, const char* key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

bool wholeNumber(const Json* value, std::int64_t lowest, std::int64_t highest, std::int64_t& out) {
    if (value == nullptr || !value->is_number()) return false;
    const double number = value->get<double>();
    if (!std::isfinite(number) || number != std::floor(number)) return false;
    if (number < static_cast<double>(lowest) || number > static_cast<double>(highest)) return false;
    out = static_cast<std::int64_t>(number);
    return true;
}

// A string member: absent is fine unless required; present must be a string
// of at most maxBytes.
bool readText(const Json& object, const char* key, std::size_t maxBytes, bool required, std::string& out,
              bool* present = nullptr) {
    const Json* value = member(object, key);
    if (present != nullptr) *present = value != nullptr;
    if (value == nullptr) return !required;
    if (!value->is_string()) return false;
    const auto& text = value->get_ref<const std::string&>();
    if (text.size() > maxBytes) return false;
    out = text;
    return true;
}

bool isAbsolute(std::string_view path) { return !path.empty() && path.front() == '/'; }

class RecoveryFileReader {
public:
    RecoveryFileReader(const RecoveryReadOptions& options, RecoveryReadDetails& details)
        : options_(options), details_(details) {}

    RecoveryReadStatus read(const fs::path& path, core::EventCore& event, std::string& mediaFolder,
                            std::int64_t& playbackPositionMs, core::SingerStates& singerStates);

private:
    RecoveryReadStatus validate(const Json& root);
    bool validateEntry(const Json& value, EntryKind kind, StoredEntry& out) const;
    RecoveryReadStatus apply(core::EventCore& event, std::string& mediaFolder, std::int64_t& playbackPositionMs,
                             core::SingerStates& singerStates);
    void loadLibrary(core::EventCore& scratch);
    const Song* bind(const core::EventCore& scratch, const StoredEntry& entry, EntryKind kind);

    const RecoveryReadOptions& options_;
    RecoveryReadDetails& details_;
    int version_ = 0;
    std::string storedFolder_;
    std::string effectiveFolder_;
    double musicVolume_ = kDefaultMusicVolume;
    std::int64_t positionMs_ = 0;
    std::string statusWord_ = "stopped";
    std::vector<StoredSinger> singers_;
    std::unordered_set<std::int64_t> singerIds_;
    std::vector<StoredState> states_;
    std::vector<StoredEntry> queue_;
    std::optional<StoredEntry> current_;
    std::vector<StoredEntry> history_;
    bool mediaUnavailable_ = false;
    bool currentUnavailable_ = false;
    MediaStampCache stamps_;
};

bool RecoveryFileReader::validateEntry(const Json& value, EntryKind kind, StoredEntry& out) const {
    if (!value.is_object()) return false;
    const bool history = kind == EntryKind::History;
    if (!wholeNumber(member(value, "singerId"), history ? 0 : 1, kMaxRecoveryStoredId, out.singerId)) return false;
    if (!history && singerIds_.count(out.singerId) == 0) return false;
    if (!readText(value, "songPath", kMaxRecoveryPathBytes, true, out.songPath) || !isAbsolute(out.songPath))
        return false;
    bool hasRelative = false;
    if (!readText(value, "relativePath", kMaxRecoveryPathBytes, false, out.relativePath, &hasRelative)) return false;
    if (hasRelative && version_ < 3) return false;
    if (!out.relativePath.empty() && !isSafeRelativePath(out.relativePath)) return false;
    if (!readText(value, "singer", kMaxRecoveryTextBytes, false, out.singer)) return false;
    const bool described = version_ >= 4;
    if (!readText(value, "title", kMaxRecoveryTextBytes, described, out.title) ||
        !readText(value, "artist", kMaxRecoveryTextBytes, described, out.artist) ||
        !readText(value, "format", kMaxRecoveryFormatBytes, described, out.format) ||
        !readText(value, "cdgPath", kMaxRecoveryPathBytes, false, out.cdgPath))
        return false;
    const bool stamped = described && !history;
    if (!readText(value, "mediaSize", kMaxRecoveryStampBytes, stamped, out.mediaSize) ||
        !readText(value, "mediaModified", kMaxRecoveryStampBytes, stamped, out.mediaModified))
        return false;
    if (history) {
        const Json* playedAt = member(value, "playedAt");
        if (playedAt == nullptr || !playedAt->is_number()) return false;
        out.playedAt = playedAt->get<double>();
        if (!std::isfinite(out.playedAt) || out.playedAt < 0) return false;
    }
    return true;
}

RecoveryReadStatus RecoveryFileReader::validate(const Json& root) {
    constexpr auto damaged = RecoveryReadStatus::Damaged;
    if (!root.is_object()) return damaged;
    const Json* version = member(root, "version");
    if (version == nullptr || !version->is_number()) return damaged;
    const double number = version->get<double>();
    if (!std::isfinite(number) || number != std::floor(number)) return damaged;
    // Nothing past the version is looked at in a newer file.
    if (number > kRecoveryFormatVersion) return RecoveryReadStatus::Newer;
    if (number < 1) return damaged;
    version_ = static_cast<int>(number);
    details_.version = version_;

    const Json* folder = member(root, "mediaFolder");
    const Json* singers = member(root, "singers");
    const Json* states = member(root, "singerStates");
    const Json* queue = member(root, "queue");
    const Json* current = member(root, "current");
    const Json* history = member(root, "history");
    if (folder == nullptr || !folder->is_string()) return damaged;
    if (singers == nullptr || !singers->is_array() || queue == nullptr || !queue->is_array() ||
        history == nullptr || !history->is_array())
        return damaged;
    if (states != nullptr && !states->is_array()) return damaged;
    if (current != nullptr && !current->is_object() && !current->is_null()) return damaged;
    storedFolder_ = folder->get<std::string>();
    details_.storedMediaFolder = storedFolder_;
    if (storedFolder_.size() > kMaxRecoveryPathBytes || storedFolder_.find('\0') != std::string::npos ||
        (!storedFolder_.empty() && !isAbsolute(storedFolder_)))
        return damaged;
    if (singers->size() > core::kMaxSingers || queue->size() > core::kMaxQueueEntries ||
        history->size() > core::kMaxHistoryEntries || (states != nullptr && states->size() > singers->size()))
        return damaged;
    const bool hasCurrent = current != nullptr && current->is_object();
    // Only a writer of the current version may leave a truly empty event.
    if (version_ < kRecoveryFormatVersion && storedFolder_.empty() && singers->empty() && queue->empty() &&
        history->empty() && !hasCurrent)
        return damaged;

    singers_.reserve(singers->size());
    for (const Json& value : *singers) {
        StoredSinger singer;
        if (!value.is_object() || !wholeNumber(member(value, "id"), 1, kMaxRecoveryStoredId, singer.id)) return damaged;
        if (!readText(value, "name", SIZE_MAX, true, singer.name) || core::trimText(singer.name).empty())
            return damaged;
        if (!singerIds_.insert(singer.id).second) return damaged;
        singers_.push_back(std::move(singer));
    }
    if (states != nullptr) {
        for (const Json& value : *states) {
            StoredState state;
            if (!value.is_object() || !wholeNumber(member(value, "singerId"), 1, kMaxRecoveryStoredId, state.singerId) ||
                singerIds_.count(state.singerId) == 0)
                return damaged;
            if (!readText(value, "state", kMaxRecoveryStatusBytes, true, state.state) ||
                !core::isSingerStateWord(state.state))
                return damaged;
            states_.push_back(std::move(state));
        }
    }
    queue_.reserve(queue->size());
    for (const Json& value : *queue) {
        StoredEntry entry;
        if (!validateEntry(value, EntryKind::Queue, entry)) return damaged;
        queue_.push_back(std::move(entry));
    }
    if (hasCurrent) {
        StoredEntry entry;
        if (!validateEntry(*current, EntryKind::Current, entry)) return damaged;
        current_ = std::move(entry);
    }
    history_.reserve(history->size());
    for (const Json& value : *history) {
        StoredEntry entry;
        if (!validateEntry(value, EntryKind::History, entry)) return damaged;
        history_.push_back(std::move(entry));
    }

    if (const Json* volume = member(root, "musicVolume")) {
        if (!volume->is_number()) return damaged;
        musicVolume_ = volume->get<double>();
        if (!std::isfinite(musicVolume_) || musicVolume_ < 0.0 || musicVolume_ > 1.0) return damaged;
    }
    if (const Json* position = member(root, "playbackPositionMs")) {
        if (!wholeNumber(position, 0, kMaxPlaybackPositionMs, positionMs_)) return damaged;
    }
    if (member(root, "playbackStatus") != nullptr) {
        if (!readText(root, "playbackStatus", kMaxRecoveryStatusBytes, true, statusWord_)) return damaged;
        if (statusWord_ != "playing" && statusWord_ != "paused" && statusWord_ != "stopped") return damaged;
    }
    details_.storedPlaybackStatus = statusWord_;
    return RecoveryReadStatus::Complete;
}

void RecoveryFileReader::loadLibrary(core::EventCore& scratch) {
    if (effectiveFolder_.empty()) return;
    std::error_code error;
    if (!fs::is_directory(fs::path(effectiveFolder_), error) || error) {
        mediaUnavailable_ = true;
        return;
    }
    try {
        const RecoveryLibraryLoader& loader = options_.loadLibrary;
        std::optional<std::vector<Song>> songs =
            loader ? loader(fs::path(effectiveFolder_)) : loadRecoveryLibrary(fs::path(effectiveFolder_));
        if (!songs || !scratch.replaceLibrary(std::move(*songs))) mediaUnavailable_ = true;
    } catch (...) {
        mediaUnavailable_ = true;
    }
}

const Song* RecoveryFileReader::bind(const core::EventCore& scratch, const StoredEntry& entry, EntryKind kind) {
    std::string key = entry.songPath;
    if (version_ >= 3 && !entry.relativePath.empty() && !effectiveFolder_.empty()) {
        key = joinStoredRelative(effectiveFolder_, entry.relativePath);
    } else if (!options_.overrideMediaFolder.empty() && !storedFolder_.empty()) {
        if (const auto relative = canonicalRelativePath(entry.songPath, storedFolder_)) {
            key = joinStoredRelative(effectiveFolder_, *relative);
        }
    }
    const Song* song = scratch.songByPath(key);
    if (song == nullptr || version_ < 4) return song;
    if (entry.title != song->title || entry.artist != song->artist || entry.format != song->format) return nullptr;
    if (kind != EntryKind::History) {
        // A file replaced by another of the same name must not play as the
        // song the singer asked for.
        const MediaStamp& stamp = stamps_.stampOf(song->path);
        if (entry.mediaSize != stamp.size || entry.mediaModified != stamp.modified) return nullptr;
    }
    return song;
}

RecoveryReadStatus RecoveryFileReader::apply(core::EventCore& event, std::string& mediaFolder,
                                             std::int64_t& playbackPositionMs, core::SingerStates& singerStates) {
    constexpr auto damaged = RecoveryReadStatus::Damaged;
    effectiveFolder_ = options_.overrideMediaFolder.empty() ? storedFolder_ : options_.overrideMediaFolder;
    core::EventCore scratch;
    loadLibrary(scratch);

    std::unordered_map<std::int64_t, std::int32_t> newIds;
    newIds.reserve(singers_.size());
    for (const StoredSinger& singer : singers_) {
        const std::int32_t id = scratch.addSinger(singer.name);
        if (id < 1 || !newIds.emplace(singer.id, id).second) return damaged;
    }
    core::SingerStates states;
    for (const StoredState& state : states_) {
        if (state.state != "Ready") states[newIds.at(state.singerId)] = state.state;
    }
    for (const StoredEntry& entry : queue_) {
        const Song* song = bind(scratch, entry, EntryKind::Queue);
        if (song == nullptr) {
            mediaUnavailable_ = true;
            continue;
        }
        if (scratch.enqueueForSinger(song->id, newIds.at(entry.singerId)) == 0) return damaged;
    }
    if (current_) {
        const Song* song = bind(scratch, *current_, EntryKind::Current);
        if (song == nullptr) {
            mediaUnavailable_ = true;
            currentUnavailable_ = true;
        } else if (!scratch.restoreCurrent(song->id, newIds.at(current_->singerId))) {
            return damaged;
        }
    }
    for (const StoredEntry& entry : history_) {
        const auto mapped = newIds.find(entry.singerId);
        const std::int32_t singerId = mapped == newIds.end() ? 0 : mapped->second;
        const Song* song = bind(scratch, entry, EntryKind::History);
        bool added = false;
        if (song != nullptr) {
            added = scratch.restoreHistoryEntry(song->id, singerId, entry.singer, entry.playedAt);
        } else {
            // Never lost for want of media: the entry keeps its own strings.
            const Song free{0, entry.songPath, entry.title, entry.artist, entry.format, entry.cdgPath};
            added = scratch.restoreHistoryEntry(free, singerId, entry.singer, entry.playedAt);
        }
        if (!added) return damaged;
    }

    std::int64_t position = positionMs_;
    if (statusWord_ != "stopped") {
        if (scratch.current()) {
            // A performance never resumes by itself after a restart.
            scratch.setPlaybackStatus(core::PlaybackStatus::Paused);
        } else if (currentUnavailable_) {
            position = 0;
        } else {
            return damaged;
        }
    }
    scratch.setMusicVolume(musicVolume_);

    details_.mediaUnavailable = mediaUnavailable_;
    details_.currentUnavailable = currentUnavailable_;
    event = std::move(scratch);
    mediaFolder = effectiveFolder_;
    playbackPositionMs = position;
    singerStates = std::move(states);
    return mediaUnavailable_ ? RecoveryReadStatus::Partial : RecoveryReadStatus::Complete;
}

RecoveryReadStatus RecoveryFileReader::read(const fs::path& path, core::EventCore& event, std::string& mediaFolder,
                                            std::int64_t& playbackPositionMs, core::SingerStates& singerStates) {
    constexpr auto damaged = RecoveryReadStatus::Damaged;
    const std::string& override = options_.overrideMediaFolder;
    if (override.size() > kMaxRecoveryPathBytes || override.find('\0') != std::string::npos ||
        (!override.empty() && !isAbsolute(override)))
        return damaged;
    if (path.empty()) return RecoveryReadStatus::Missing;
    switch (core::getFileKind(path)) {
        case core::FileKind::Missing: return RecoveryReadStatus::Missing;
        case core::FileKind::RegularFile: break;
        default: return damaged;
    }
    const std::optional<std::string> text = core::readBoundedFile(path, kMaxRecoveryFileBytes);
    if (!text) return damaged;

    Json root = Json::value_t::discarded;
    if (jsonNestingWithin(*text, kMaxJsonNesting)) root = Json::parse(*text, nullptr, false);
    // Only a file that parses can say it is newer; text that doesn't is
    // damaged whatever it starts with, so the backup gets its turn.
    if (root.is_discarded()) return damaged;

    const RecoveryReadStatus checked = validate(root);
    if (checked != RecoveryReadStatus::Complete) return checked;
    root = Json();
    return apply(event, mediaFolder, playbackPositionMs, singerStates);
}

}  // namespace

std::optional<std::vector<Song>> loadRecoveryLibrary(const fs::path& folder) {
    try {
        const fs::path cache = core::MediaIndexCachePath();
        if (!cache.empty()) {
            return core::loadMediaIndex(folder, cache, core::MediaIndexMode::VerifyCache, {}).songs;
        }
        return core::scanMediaFolder(folder);
    } catch (...) {
        return std::nullopt;
    }
}

RecoveryReadStatus readEventRecovery(const fs::path& path, core::EventCore& event, std::string& mediaFolder,
                                     std::int64_t& playbackPositionMs, core::SingerStates& singerStates,
                                     const RecoveryReadOptions& options, RecoveryReadDetails* details) {
    RecoveryReadDetails local;
    RecoveryReadDetails& out = details != nullptr ? *details : local;
    out = {};
    try {
        RecoveryFileReader reader(options, out);
        return reader.read(path, event, mediaFolder, playbackPositionMs, singerStates);
    } catch (...) {
        // Out of memory or a library failure while building the scratch
        // event: the caller's event was not touched.
        return RecoveryReadStatus::Damaged;
    }
}

RecoveryReadStatus readEventRecovery(const fs::path& path, core::EventCore& event, std::string& mediaFolder,
                                     std::int64_t& playbackPositionMs, core::SingerStates& singerStates,
                                     std::string_view overrideMediaFolder) {
    RecoveryReadOptions options;
    options.overrideMediaFolder = std::string(overrideMediaFolder);
    return readEventRecovery(path, event, mediaFolder, playbackPositionMs, singerStates, options);
}

}  // namespace tamo::shell
