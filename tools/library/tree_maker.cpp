#include "tree_maker.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tamo::tools {
namespace fs = std::filesystem;
namespace {

constexpr std::array<std::string_view, 40> kNameWords{
    "Love",   "Night",  "Heart",  "Fire",   "Dream",  "Rain",   "Summer", "Dance", "Blue",    "Golden",
    "River",  "Crazy",  "Angel",  "Wild",   "Sweet",  "Shadow", "Light",  "Road",  "Forever", "Baby",
    "Moon",   "Star",   "Time",   "Home",   "Girl",   "Boy",    "Thunder", "Ocean", "Paradise", "Midnight",
    "Yellow", "Little", "Highway", "Silver", "Broken", "Morning", "Magic", "City",  "Storm",   "Electric"};
constexpr std::array<std::string_view, 16> kArtistHeads{
    "The",  "Lady", "Big",   "Johnny", "Mary",  "Black", "Velvet", "Electric",
    "Mister", "Miss", "Royal", "Captain", "Sonic", "Neon",  "Happy",  "Rolling"};
constexpr std::array<std::string_view, 16> kArtistTails{
    "Band", "Brothers", "Sisters", "Kings", "Queens", "Project", "Machine", "Orchestra",
    "Collective", "Cats", "Wolves", "Riders", "Singers", "Trio", "Crew", "Experience"};
constexpr std::array<std::string_view, 4> kNoise{"cover.jpg", "notes.txt", "Thumbs.db", "lyrics.pdf"};

void touch(const fs::path& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "could not create " + path.string());
    ::close(fd);
}

void makeFolder(const fs::path& path, TreeStats& stats) {
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), "could not create " + path.string());
    }
    ++stats.directories;
}

}  // namespace

TreeStats makeSyntheticTree(const fs::path& folder, std::uint64_t songs, std::uint32_t seed) {
    TreeStats stats;
    fs::create_directories(folder);
    std::mt19937 random(seed);
    const auto pick = [&](const auto& list) { return list[random() % list.size()]; };

    // About 100 songs per artist keeps folders realistic and the folder count
    // far below its limit.
    const std::uint64_t artists = songs / 100 + 1;
    std::uint64_t made = 0;
    for (std::uint64_t artist = 0; artist < artists && made < songs; ++artist) {
        const std::string artistName = std::string(pick(kArtistHeads)) + " " + std::string(pick(kNameWords)) + " " +
                                       std::string(pick(kArtistTails)) + " " + std::to_string(artist);
        const fs::path letter = folder / artistName.substr(0, 1);
        if (!fs::exists(letter)) makeFolder(letter, stats);
        const fs::path artistFolder = letter / artistName;
        makeFolder(artistFolder, stats);
        if (artist % 5 == 0) {
            touch(artistFolder / kNoise[artist % kNoise.size()]);
            ++stats.noise;
        }

        const std::uint64_t share = std::min<std::uint64_t>(songs - made, (songs + artists - 1) / artists);
        const bool discs = artist % 4 == 0;
        for (std::uint64_t i = 0; i < share; ++i, ++made) {
            fs::path place = artistFolder;
            if (discs) {
                place /= "Disc " + std::to_string(1 + i / 25);
                if (i % 25 == 0) makeFolder(place, stats);
            }
            const std::string title = std::string(pick(kNameWords)) + " " + std::string(pick(kNameWords)) + " " +
                                      std::to_string(made);
            const std::string stem = "SC" + std::to_string(1000 + made % 9000) + "-" + std::to_string(i % 20) +
                                     " - " + artistName + " - " + title;
            // Eight in ten are karaoke pairs, the others stand-alone videos.
            if (made % 10 < 8) {
                touch(place / (stem + ".mp3"));
                touch(place / (stem + ".cdg"));
                ++stats.graphics;
            } else {
                touch(place / (stem + (made % 2 == 0 ? ".mp4" : ".mkv")));
            }
            ++stats.songs;
        }
    }
    return stats;
}

}  // namespace tamo::tools
