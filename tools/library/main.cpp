// tamo-library: index and search a media folder from the command line, the
// way the application loads its library, and make synthetic trees to try it on.

#include "common_filename_word_cache.h"
#include "fixed_paths.h"
#include "media_folder_scan.h"
#include "media_index_load.h"
#include "media_preflight.h"
#include "song_search.h"
#include "text.h"
#include "tree_maker.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

namespace {
namespace fs = std::filesystem;
using namespace tamo::core;

constexpr const char* kUsage =
    "Usage:\n"
    "  tamo-library index FOLDER [--cache FILE | --no-cache] [--mode trust|verify|rebuild]\n"
    "  tamo-library search FOLDER [--cache FILE | --no-cache] [--mode trust|verify|rebuild] [--limit N]\n"
    "                      [--no-word-cache] QUERY...\n"
    "  tamo-library preflight FOLDER [--cache FILE | --no-cache] [--mode trust|verify|rebuild]\n"
    "  tamo-library make-tree DIR --songs N [--seed S]\n"
    "  tamo-library --help\n"
    "\n"
    "index    loads the songs of FOLDER through its index cache and prints the song\n"
    "         count, whether they came from the cache, and the time taken.\n"
    "search   loads FOLDER the same way and prints the songs whose file name holds\n"
    "         every word of QUERY, in library order: id, artist, title, file name,\n"
    "         separated by tabs. --limit defaults to 100; 0 means no limit. A\n"
    "         one-word query is answered from the index of common file-name\n"
    "         words, as the application does; --no-word-cache forces the plain\n"
    "         filter.\n"
    "preflight  checks that every song's media (and an .mp3's graphics) is a\n"
    "         plain file that opens; prints the result, then one line per issue:\n"
    "         id, media path, label. Exit status 1 when any issue was found.\n"
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
    bool noWordCache = false;
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

// The songs a search shows. A one-word query goes through the common
// filename word cache, built here for this library, and copies the hit's
// positions up to the limit; several words, a miss, a failed build or
// --no-word-cache take the linear filter. A hit can list fewer songs than
// the filter, since text after a name's first "." isn't indexed.
std::vector<Song> searchLibrary(const std::vector<Song>& songs, std::string_view query, std::size_t limit,
                                bool useWordCache, const char** path) {
    *path = "linear";
    const std::string normalized = normalizeSearchQuery(query);
    const bool oneWord = !normalized.empty() && std::none_of(normalized.begin(), normalized.end(), isSpaceByte);
    if (useWordCache && oneWord) {
        if (const auto cache = buildCommonFilenameWordCache(songs, kDefaultCommonWordLimit, {})) {
            std::span<const std::uint32_t> positions;
            if (cache->lookup(normalized, positions)) {
                std::vector<Song> found;
                found.reserve(std::min(positions.size(), limit == 0 ? std::size_t{256} : limit));
                for (const std::uint32_t position : positions) {
                    if (limit != 0 && found.size() == limit) break;
                    if (position < songs.size()) found.push_back(songs[position]);
                }
                *path = "word cache";
                return found;
            }
        }
    }
    return searchSongs(songs, normalized, limit);
}

// The result line, then one line per issue: id, media path, label, separated
// by tabs. Exit status 0 when every song is in order, 1 otherwise.
int runPreflight(const std::vector<Song>& songs) {
    if (songs.empty()) {
        std::cout << kPreflightNoSongsText << '\n';
        return 0;
    }
    const PreflightResult result = runMediaPreflight(songs, {});
    std::cout << preflightResultText(result) << '\n';
    std::vector<const Song*> byId;
    for (const Song& song : songs) {
        if (song.id <= 0) continue;
        const auto index = static_cast<std::size_t>(song.id);
        if (byId.size() <= index) byId.resize(index + 1, nullptr);
        byId[index] = &song;
    }
    for (const PreflightIssue& issue : result.issues) {
        const auto index = static_cast<std::size_t>(issue.songId);
        const Song* song = issue.songId > 0 && index < byId.size() ? byId[index] : nullptr;
        std::cout << issue.songId << '\t' << (song != nullptr ? song->path : std::string()) << '\t'
                  << preflightIssueLabel(issue.kind) << '\n';
    }
    return result.issues.empty() ? 0 : 1;
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
    if (options.command == "preflight") return runPreflight(loaded.songs);
    const char* path = "";
    for (const Song& song : searchLibrary(loaded.songs, options.query, options.limit, !options.noWordCache, &path)) {
        std::cout << song.id << '\t' << song.artist << '\t' << song.title << '\t' << songFileName(song.path) << '\n';
    }
    if (::isatty(STDERR_FILENO) != 0) std::cerr << "searched by " << path << '\n';
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
        } else if (arg == "--no-word-cache") {
            options.noWordCache = true;
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
    if (options.command != "index" && options.command != "search" && options.command != "make-tree" &&
        options.command != "preflight") {
        return usageError("unknown command " + options.command);
    }
    if (positional.size() < 2) return usageError("no folder given");
    options.folder = positional[1];
    if (options.cache && options.noCache) return usageError("--cache and --no-cache exclude each other");
    if (options.command == "index" && positional.size() != 2) return usageError("index takes one folder");
    if (options.command == "preflight" && positional.size() != 2) return usageError("preflight takes one folder");
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
