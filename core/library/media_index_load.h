#pragma once

#include "media_index.h"

#include <filesystem>
#include <vector>

namespace tamo::core {

enum class MediaIndexMode : int {
    // Startup and choosing a folder: a readable cache is used as it stands;
    // new or removed files are noticed at the next verified load or rebuild.
    TrustCache = 0,
    // Restoring an event: every cached file and every directory's names are
    // checked against the disk before the cache is believed.
    VerifyCache = 1,
    // The operator's rebuild: always a full verified scan.
    RebuildCache = 2,
};

struct MediaIndexLoad {
    std::vector<Song> songs;
    bool rebuilt = false;  // true whenever a scan made the songs
};

// The songs of a media folder through its index cache. A cache that can't be
// trusted is rebuilt silently by a stable scan and written back; only scan
// failures are thrown (MediaScanError), and then nothing is written. An
// empty cachePath scans without reading or writing a cache. Runs on the
// calling thread (a background task of the shell).
MediaIndexLoad loadMediaIndex(const std::filesystem::path& root, const std::filesystem::path& cachePath,
                              MediaIndexMode mode, const ScanProgress& progress);

}  // namespace tamo::core
