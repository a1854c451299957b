#pragma once

#include "media_index.h"

#include <filesystem>

namespace tamo::core {

// The index scan. Walks the tree breadth-first under MediaScanLimits,
// fingerprints every directory, pairs media with graphics and makes the songs
// in parallel. Symbolic links and mount points are skipped and leave no trace;
// a directory that resolves outside the root stops the scan. Pass a canonical
// root. With trustPairs no file is touched after listing: every song is
// assumed to have its ".cdg" beside it. Throws MediaScanError.
MediaIndexSnapshot buildMediaIndex(const std::filesystem::path& root, const ScanProgress& progress,
                                   bool trustPairs);

// buildMediaIndex confirmed by a second fingerprint walk; up to three
// attempts. A safe-limit failure is never retried; a folder that never stands
// still fails with "Media folder did not stabilize during scan".
MediaIndexSnapshot scanStable(const std::filesystem::path& root, const ScanProgress& progress, bool trustPairs);

// A fresh fingerprint-only walk compared with stamps (sorted by key): same
// keys, name counts and name hashes. Timestamps are not compared. False when
// root is not a directory; walk failures are thrown.
bool directoryStampsMatch(const std::filesystem::path& root, const std::vector<DirectoryStamp>& stamps,
                          const ScanProgress& progress);

// The same fingerprint-only walk, returning the sorted stamps.
std::vector<DirectoryStamp> fingerprintMediaFolder(const std::filesystem::path& root, const ScanProgress& progress);

}  // namespace tamo::core
