#pragma once

#include "song.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tamo::core {

// Fingerprint of one directory of a media tree. key is the path relative to
// the root with forward slashes, "." for the root; nameCount and nameHash
// cover the sorted names of its subfolders (with a trailing "/"), media and
// graphics files. timestamp is kept for the record but decides nothing.
struct DirectoryStamp {
    std::string key;
    std::int64_t timestamp = 0;
    std::uint64_t nameCount = 0;
    std::uint64_t nameHash = 0;

    friend bool operator==(const DirectoryStamp&, const DirectoryStamp&) = default;
};

// One media folder at one moment: stamps sorted by key, songs sorted by
// media path with identities 1..n in that order. A value.
struct MediaIndexSnapshot {
    std::vector<DirectoryStamp> stamps;
    std::vector<Song> songs;
};

// A media file found by the index scan, and whether a graphics file with its
// stem was seen beside it.
struct ScanCandidate {
    std::string path;
    bool pairKnown = false;
};

// (done, total); a total of 0 means not known yet. Called on the scanning
// thread only. May be empty.
using ScanProgress = std::function<void(std::uint64_t done, std::uint64_t total)>;

}  // namespace tamo::core
