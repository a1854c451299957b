#pragma once

#include <cstdint>

namespace tamo::core {

// Hard bounds of one scan, shared by both scanners and the cache file. A
// folder beyond them is refused rather than half read.
struct MediaScanLimits {
    static constexpr std::uint64_t maxDepth = 64;           // levels below the root
    static constexpr std::uint64_t maxEntries = 1000000;    // entries visited in the whole scan
    static constexpr std::uint64_t maxDirectories = 100000; // root included
    static constexpr std::uint64_t maxSongs = 500000;       // media files
};

inline constexpr const char* kDepthLimitText = "Media folder nesting exceeded the safe depth limit";
inline constexpr const char* kEntryLimitText = "Media folder exceeded the safe entry limit";
inline constexpr const char* kDirectoryLimitText = "Media folder exceeded the safe directory limit";
inline constexpr const char* kSongLimitText = "Media folder exceeded the safe song limit";

}  // namespace tamo::core
