#pragma once

#include "media_index.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

// media-index-cache.tsv keeps the last snapshot of one media folder so that
// a start needs a read instead of a walk. It is only a cache: the reader
// refuses anything it can't trust in every detail, and the writer fails
// silently, never leaving a temporary behind or damaging the old file.
inline constexpr std::string_view kMediaIndexMagicV5 = "TAMO_MEDIA_INDEX_V5";
inline constexpr std::string_view kMediaIndexMagicV4 = "TAMO_MEDIA_INDEX_V4";

struct MediaIndexCacheLimits {
    static constexpr std::uint64_t maxFileBytes = 0x10000000;
    static constexpr std::uint64_t maxLineBytes = 0x100000;     // without its line end, reading
    static constexpr std::uint64_t maxRecordBytes = 0x100001;   // with its line end, writing
    static constexpr std::uint64_t lineBufferBytes = 0x100002;
    static constexpr std::uint64_t maxDirectories = 100000;
    static constexpr std::uint64_t maxSongs = 500000;
};

// Reads the cache of root (pass the canonical root). On any doubt returns
// false with both lists empty. A V4 file (absolute paths) sets
// *formatUpgradeNeeded. Every listed directory is checked on disk; with
// checkDisk every media and graphics file too. Never throws.
bool readMediaIndexCache(const std::filesystem::path& cachePath, const std::filesystem::path& root,
                         std::vector<DirectoryStamp>& stamps, std::vector<Song>& songs, bool* formatUpgradeNeeded,
                         const ScanProgress& progress, bool checkDisk);

// Replaces the cache with snapshot through a fresh temporary and a rename;
// on any failure the temporary is removed and the old cache stands. Never
// reports failure and never throws.
void writeMediaIndexCache(const std::filesystem::path& cachePath, const std::filesystem::path& root,
                          const MediaIndexSnapshot& snapshot);

// The escaping of text fields: backslash, tab, line feed and carriage return
// become two characters each.
std::string escapeCacheField(std::string_view text);
std::string unescapeCacheField(std::string_view text);

}  // namespace tamo::core
