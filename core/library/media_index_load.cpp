#include "media_index_load.h"

#include "media_index_cache.h"
#include "media_index_scan.h"
#include "media_scan_error.h"
#include "media_tree.h"

#include <cerrno>

namespace tamo::core {
namespace fs = std::filesystem;

namespace {

MediaIndexLoad scanAndWrite(const fs::path& root, const fs::path& cachePath, const ScanProgress& progress,
                            bool trustPairs) {
    MediaIndexSnapshot snapshot = scanStable(root, progress, trustPairs);
    if (!cachePath.empty()) writeMediaIndexCache(cachePath, root, snapshot);
    return MediaIndexLoad{std::move(snapshot.songs), true};
}

bool stampsStillMatch(const fs::path& root, const std::vector<DirectoryStamp>& stamps, const ScanProgress& progress) {
    try {
        return directoryStampsMatch(root, stamps, progress);
    } catch (const fs::filesystem_error&) {
        // The scan that follows reports the failure if it persists.
        return false;
    }
}

}  // namespace

MediaIndexLoad loadMediaIndex(const fs::path& root, const fs::path& cachePath, MediaIndexMode mode,
                              const ScanProgress& progress) {
    const std::string canonicalText = media_tree::canonicalPath(root.string());
    if (canonicalText.empty()) throwScanError(scan_text::kResolve, root, errno);
    const fs::path canonical(canonicalText);
    std::error_code ec;
    if (!fs::is_directory(canonical, ec)) {
        throwScanError(scan_text::kNotDirectory, root, ec ? ec.value() : EIO);
    }

    std::vector<DirectoryStamp> stamps;
    std::vector<Song> songs;
    bool upgrade = false;
    switch (mode) {
        case MediaIndexMode::TrustCache:
            if (!cachePath.empty() && readMediaIndexCache(cachePath, canonical, stamps, songs, &upgrade, progress, false)) {
                return MediaIndexLoad{std::move(songs), false};
            }
            return scanAndWrite(canonical, cachePath, progress, true);
        case MediaIndexMode::VerifyCache:
            if (!cachePath.empty() && readMediaIndexCache(cachePath, canonical, stamps, songs, &upgrade, progress, true) &&
                stampsStillMatch(canonical, stamps, progress)) {
                if (upgrade) writeMediaIndexCache(cachePath, canonical, MediaIndexSnapshot{std::move(stamps), songs});
                return MediaIndexLoad{std::move(songs), false};
            }
            return scanAndWrite(canonical, cachePath, progress, false);
        case MediaIndexMode::RebuildCache:
            break;
    }
    return scanAndWrite(canonical, cachePath, progress, false);
}

}  // namespace tamo::core
