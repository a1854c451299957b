#pragma once

#include <cstdint>
#include <filesystem>

namespace tamo::tools {

struct TreeStats {
    std::uint64_t songs = 0;
    std::uint64_t graphics = 0;
    std::uint64_t noise = 0;
    std::uint64_t directories = 0;
};

// Fills folder (which must not exist yet or be empty) with a synthetic media
// library of the given number of songs: "Artist - Title" names in
// letter/artist folders, some artists split into disc folders, most songs as
// karaoke pairs and the rest as videos, and a few files that are not media.
// Media files are empty. The mix keeps every tree up to the scan's song
// limit under its entry limit. Deterministic for a given seed.
TreeStats makeSyntheticTree(const std::filesystem::path& folder, std::uint64_t songs, std::uint32_t seed = 1);

}  // namespace tamo::tools
