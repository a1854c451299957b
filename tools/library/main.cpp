// tamo-library: index and search a media folder from the command line, the
// way the application loads its library, and make synthetic trees to try it on.

#include "fixed_paths.h"
#include "media_folder_scan.h"
#include "media_index_load.h"
#include "song_search.h"
#include "tree_maker.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {
namespace fs = std::filesystem;
using namespace tamo::core;

constexpr const char* kUsage =
    "Usage:\n"
    "  tamo-library index FOLDER [--cache FILE | --no-cache] [--mode trust|verify|rebuild]\n"
    "  tamo-library search FOLDER [--cache FILE | --no-cache] [--mode trust|verify|rebuild] [--limit N] QUERY...\n"
    "  tamo-library make-tree DIR --songs N [--seed S]\n"
    "  tamo-library --help\n"
    "\n"
    "index    loads the songs of FOLDER through its index cache and prints the song\n"
    "         count, whether they came from the cache, and the time taken.\n"
    "search   loads FOLDER the same way and prints the songs whose file name holds\n"
    "         every word of QUERY, in library order: id, artist, title, file name,\n"
    "         separated by tabs. --limit defaults to 100; 0 means no limit.\n"
    "make-tree  writes a synthetic library of N songs (empty files) into DIR.\n"
    "\n"
    "The cache defaults to the application's own, media-index-cache.tsv in\n"
    "${XDG_DATA_HOME:-$HOME/.local/share}/Quillon/Tamo. --mode trust (default) uses a\n"
    "readable cache as it stands, verify checks it against the disk, rebuild always\n"
    "scans. --no-cache scans without any cache file.\n";

struct Options {
    std::string command;
    std::string folder;
    std::optional<fs::path> cache;
    bool noCache = false;
    MediaIndexMode mode = MediaIndexMode::TrustCache;
    std::size_t limit = 100;
    std::uint64_t songs = 0;
    std::uint32_t seed = 1;
    std::string query;
};

int usageError(const std::string& message) {
    std::cerr << "tamo-library: " << message << "\n\n" << kUsage;
    return 2;
}

std::optional<std::uint64_t> number(const char* text) {
    if (text == nullptr || *text == '\0') return std::nullopt;
    std::uint64_t value = 0;
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c < '0' || *c > '9' || value > (UINT64_MAX - 9) / 10) return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(*c - '0');
    }
    return value;
}

// Progress on standard error, only when a person watches it.
ScanProgress terminalProgress() {
    if (::isatty(STDERR_FILENO) == 0) return {};
    return [](std::uint64_t done, std::uint64_t total) {
        if (total == 0) {
            std::fprintf(stderr, "\rfound %llu media files...        ", static_cast<unsigned long long>(done));
        } else {
            std::fprintf(stderr, "\r%llu of %llu songs...              ", static_cast<unsigned long long>(done),
                         static_cast<unsigned long long>(total));
        }
    };
}

void endProgress() {
    if (::isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "\r%40s\r", "");
}

struct Loaded {
    std::vector<Song> songs;
    const char* source = "";
};

Loaded load(const Options& options) {
    if (options.noCache) return Loaded{scanMediaFolder(options.folder), "plain scan"};
    const fs::path cache = options.cache ? *options.cache : MediaIndexCachePath();
    MediaIndexLoad loaded = loadMediaIndex(options.folder, cache, options.mode, terminalProgress());
    endProgress();
    return Loaded{std::move(loaded.songs), loaded.rebuilt ? "scan" : "cache"};
}

int run(const Options& options) {
    if (options.command == "make-tree") {
        const auto started = std::chrono::steady_clock::now();
        const tamo::tools::TreeStats stats = tamo::tools::makeSyntheticTree(options.folder, options.songs, options.seed);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        std::cout << "songs: " << stats.songs << "\ngraphics: " << stats.graphics << "\nother files: " << stats.noise
                  << "\nfolders: " << stats.directories << "\nelapsed: " << seconds << " s\n";
        return 0;
    }

    const auto started = std::chrono::steady_clock::now();
    const Loaded loaded = load(options);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (options.command == "index") {
        std::cout << "songs: " << loaded.songs.size() << "\nsource: " << loaded.source << "\nelapsed: " << seconds
                  << " s\n";
        return 0;
    }
    for (const Song& song : searchSongs(loaded.songs, options.query, options.limit)) {
        std::cout << song.id << '\t' << song.artist << '\t' << song.title << '\t' << songFileName(song.path) << '\n';
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (arg == "--help" || arg == "-h") {
            std::cout << kUsage;
            return 0;
        } else if (arg == "--cache") {
            if (value == nullptr) return usageError("--cache needs a file");
            options.cache = value;
            ++i;
        } else if (arg == "--no-cache") {
            options.noCache = true;
        } else if (arg == "--mode") {
            const std::string mode = value != nullptr ? value : "";
            if (mode == "trust") {
                options.mode = MediaIndexMode::TrustCache;
            } else if (mode == "verify") {
                options.mode = MediaIndexMode::VerifyCache;
            } else if (mode == "rebuild") {
                options.mode = MediaIndexMode::RebuildCache;
            } else {
                return usageError("--mode takes trust, verify or rebuild");
            }
            ++i;
        } else if (arg == "--limit" || arg == "--songs" || arg == "--seed") {
            const auto parsed = number(value);
            if (!parsed) return usageError(arg + " needs a number");
            if (arg == "--limit") options.limit = static_cast<std::size_t>(*parsed);
            if (arg == "--songs") options.songs = *parsed;
            if (arg == "--seed") options.seed = static_cast<std::uint32_t>(*parsed);
            ++i;
        } else if (arg.size() > 2 && arg.rfind("--", 0) == 0) {
            return usageError("unknown option " + arg);
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.empty()) return usageError("no command given");
    options.command = positional[0];
    if (options.command != "index" && options.command != "search" && options.command != "make-tree") {
        return usageError("unknown command " + options.command);
    }
    if (positional.size() < 2) return usageError("no folder given");
    options.folder = positional[1];
    if (options.cache && options.noCache) return usageError("--cache and --no-cache exclude each other");
    if (options.command == "index" && positional.size() != 2) return usageError("index takes one folder");
    if (options.command == "make-tree" && (positional.size() != 2 || options.songs == 0)) {
        return usageError("make-tree takes one folder and --songs N");
    }
    for (std::size_t i = 2; i < positional.size(); ++i) {
        if (!options.query.empty()) options.query += ' ';
        options.query += positional[i];
    }

    try {
        return run(options);
    } catch (const fs::filesystem_error& error) {
        endProgress();
        std::cerr << "tamo-library: " << error.what() << " [" << error.path1().string() << "]\n";
    } catch (const std::exception& error) {
        endProgress();
        std::cerr << "tamo-library: " << error.what() << "\n";
    }
    return 1;
}
