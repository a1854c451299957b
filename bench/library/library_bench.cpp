// Media library at scale: scans, cache write and loads, and search over
// synthetic trees of 100000 and 500000 songs, each measured against
// `find ROOT -type f | wc -l` over the same tree as the floor.
//
//   tamo-bench-library [--sizes 100000,500000] [--keep-tree DIR] [benchmark flags]
//
// Trees are made under the temporary folder and removed afterwards.

#include "media_folder_scan.h"
#include "media_index_cache.h"
#include "media_index_load.h"
#include "media_index_scan.h"
#include "song_search.h"
#include "tree_maker.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {
namespace fs = std::filesystem;
using namespace tamo::core;

// Remembers the mean wall time of each run to print ratios at the end.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
            seconds[run.run_name.function_name] = run.real_accumulated_time / static_cast<double>(run.iterations);
        }
    }
    std::map<std::string, double> seconds;
};

std::uint64_t countWithFind(const std::string& root) {
    const std::string command = "find '" + root + "' -type f | wc -l";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    unsigned long long count = 0;
    if (!pipe || std::fscanf(pipe.get(), "%llu", &count) != 1) throw std::runtime_error("find failed");
    return count;
}

struct Tree {
    fs::path folder;
    std::string root;
    fs::path cache;
    std::vector<Song> songs;
};

void registerAll(Tree& tree, std::uint64_t size) {
    const std::string tag = "/" + std::to_string(size);
    const auto reg = [&](const std::string& name, auto body) {
        benchmark::RegisterBenchmark((name + tag).c_str(), body)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
    };
    reg("find_floor", [&tree](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(countWithFind(tree.root));
    });
    reg("plain_scan", [&tree](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(scanMediaFolder(tree.root).size());
    });
    reg("index_scan_trust_pairs", [&tree](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(buildMediaIndex(tree.root, {}, true).songs.size());
    });
    reg("stable_scan_trust_pairs", [&tree](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(scanStable(tree.root, {}, true).songs.size());
    });
    reg("stable_scan_verified", [&tree](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(scanStable(tree.root, {}, false).songs.size());
    });
    reg("cache_write", [&tree](benchmark::State& state) {
        const MediaIndexSnapshot snapshot = buildMediaIndex(tree.root, {}, true);
        for (auto _ : state) writeMediaIndexCache(tree.cache, tree.root, snapshot);
        state.counters["bytes"] = static_cast<double>(fs::file_size(tree.cache));
    });
    // A first start: the cache holds trusted pairs, as a trusted scan wrote it.
    reg("load_trust_cache", [&tree](benchmark::State& state) {
        for (auto _ : state) {
            MediaIndexLoad loaded = loadMediaIndex(tree.root, tree.cache, MediaIndexMode::TrustCache, {});
            if (loaded.rebuilt) state.SkipWithError("cache was not used");
            benchmark::DoNotOptimize(loaded.songs.size());
        }
    });
    // A verified cache, as a rebuild or an earlier verified load leaves it;
    // one written from trusted pairs names graphics that may not exist and
    // is rebuilt by the first verified load.
    reg("load_verify_cache", [&tree](benchmark::State& state) {
        loadMediaIndex(tree.root, tree.cache, MediaIndexMode::RebuildCache, {});
        for (auto _ : state) {
            MediaIndexLoad loaded = loadMediaIndex(tree.root, tree.cache, MediaIndexMode::VerifyCache, {});
            if (loaded.rebuilt) state.SkipWithError("cache was not used");
            benchmark::DoNotOptimize(loaded.songs.size());
        }
    });
    for (const auto& [name, query] : std::vector<std::pair<std::string, std::string>>{
             {"search_frequent_word", "love"}, {"search_rare_word", "zebra"}, {"search_two_words", "night fire"}}) {
        for (std::size_t limit : {std::size_t{0}, std::size_t{250}}) {
            reg(name + (limit == 0 ? "_all" : "_250"), [&tree, query = query, limit](benchmark::State& state) {
                if (tree.songs.empty()) tree.songs = loadMediaIndex(tree.root, tree.cache, MediaIndexMode::TrustCache, {}).songs;
                std::size_t found = 0;
                for (auto _ : state) found = searchSongs(tree.songs, query, limit).size();
                state.counters["matches"] = static_cast<double>(found);
            });
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::uint64_t> sizes{100000, 500000};
    std::vector<char*> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--sizes" && i + 1 < argc) {
            sizes.clear();
            std::string list = argv[++i];
            for (std::size_t at = 0; at <= list.size();) {
                const std::size_t comma = std::min(list.find(',', at), list.size());
                sizes.push_back(std::stoull(list.substr(at, comma - at)));
                at = comma + 1;
            }
        } else {
            rest.push_back(argv[i]);
        }
    }
    int restCount = static_cast<int>(rest.size());
    benchmark::Initialize(&restCount, rest.data());

    RecordingReporter reporter;
    for (const std::uint64_t size : sizes) {
        Tree tree;
        std::string pattern = (fs::temp_directory_path() / "tamo-bench-library-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) return 1;
        tree.folder = pattern;
        tree.root = fs::canonical(tree.folder).string() + "/music";
        tree.cache = tree.folder / "media-index-cache.tsv";
        const auto started = std::chrono::steady_clock::now();
        const auto stats = tamo::tools::makeSyntheticTree(tree.root, size);
        std::cerr << "tree of " << stats.songs << " songs, " << stats.graphics << " graphics, " << stats.noise
                  << " other files, " << stats.directories << " folders made in "
                  << std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count() << " s\n";

        registerAll(tree, size);
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::ClearRegisteredBenchmarks();

        const std::string tag = "/" + std::to_string(size);
        const double floor = reporter.seconds["find_floor" + tag];
        std::printf("\n%-32s %12s %10s\n", ("ratios" + tag).c_str(), "ms", "x find");
        for (const auto& [name, seconds] : reporter.seconds) {
            if (name.size() < tag.size() || name.compare(name.size() - tag.size(), tag.size(), tag) != 0) continue;
            std::printf("%-32s %12.1f %10.2f\n", name.c_str(), seconds * 1000, floor > 0 ? seconds / floor : 0.0);
        }
        std::printf("\n");
        std::error_code ignored;
        fs::remove_all(tree.folder, ignored);
    }
    benchmark::Shutdown();
    return 0;
}
