#pragma once

#include "song.h"

#include <filesystem>
#include <vector>

namespace tamo::core {

// The plain scan: one recursive walk without fingerprints, for callers that
// keep no cache. Same limits and failure texts as the index scan; symbolic
// links and mount points are skipped. Songs come sorted by path with
// identities from 1, each paired with its graphics file. Throws MediaScanError.
std::vector<Song> scanMediaFolder(const std::filesystem::path& root);

}  // namespace tamo::core
