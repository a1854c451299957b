#pragma once

#include "event_core.h"
#include "recovery_format.h"
#include "singer_states.h"
#include "song.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::shell {

// Loads the songs of an existing media folder for binding a restored event;
// nothing means the folder could not be read, which counts as media that is
// unavailable rather than as a damaged file.
using RecoveryLibraryLoader = std::function<std::optional<std::vector<core::Song>>(const std::filesystem::path&)>;

// The program's loader: the index cache in its verifying mode when the cache
// path is known, else a plain scan. May write the cache.
std::optional<std::vector<core::Song>> loadRecoveryLibrary(const std::filesystem::path& folder);

// A loader that writes nothing, for looking at a file from outside the
// program: the given index cache when it is still true to the folder on
// disk (every file and directory checked), else a plain scan.
RecoveryLibraryLoader readOnlyRecoveryLibrary(std::filesystem::path cachePath);

struct RecoveryReadOptions {
    // The folder a preserved event is being bound to instead of its own; at
    // most 131072 bytes, no NUL, absolute when not empty.
    std::string overrideMediaFolder;
    // Empty means loadRecoveryLibrary.
    RecoveryLibraryLoader loadLibrary;
};

// What a read found beyond its status, for tools and tests.
struct RecoveryReadDetails {
    int version = 0;
    bool mediaUnavailable = false;
    bool currentUnavailable = false;
    std::string storedMediaFolder;
    std::string storedPlaybackStatus;
};

// Reads a recovery file. Every record is replayed through the event
// operations into a scratch event, and the caller's event, folder, position
// and states are replaced only when the whole file was accepted (status
// Complete or Partial); any other status leaves all four as they were.
// mediaFolder gets the folder the event is now bound to: the override when
// one was given. Never throws.
RecoveryReadStatus readEventRecovery(const std::filesystem::path& path, core::EventCore& event,
                                     std::string& mediaFolder, std::int64_t& playbackPositionMs,
                                     core::SingerStates& singerStates, const RecoveryReadOptions& options,
                                     RecoveryReadDetails* details = nullptr);
RecoveryReadStatus readEventRecovery(const std::filesystem::path& path, core::EventCore& event,
                                     std::string& mediaFolder, std::int64_t& playbackPositionMs,
                                     core::SingerStates& singerStates, std::string_view overrideMediaFolder = {});

}  // namespace tamo::shell
