// Build and lookup cost of the common filename word cache on a large
// synthetic library, against the linear search it stands in for, and the
// cost of a media preflight over real files.

#include "common_filename_word_cache.h"
#include "media_preflight.h"
#include "song_search.h"
#include "text.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace tamo::core;
namespace fs = std::filesystem;

constexpr std::size_t kLibrarySongs = 500000;
constexpr std::size_t kPreflightSongs = 100000;
constexpr std::size_t kRowLimit = 250;

// A word made of syllables, capitalised like a name or title word.
std::string syllableWord(std::mt19937& random, std::size_t syllables) {
    static constexpr std::array<const char*, 48> kSyllables{
        "ka", "ri", "mo", "lan", "de", "tor", "ve", "sa",  "ny", "bel", "ro", "mi", "cha", "el", "an", "ton",
        "li", "ma", "jo", "sen", "ha", "rey", "do", "vin", "ta", "ker", "lo", "ne", "gar", "fi", "ly", "son",
        "bri", "ac", "us", "ley", "wen", "ra", "stan", "po", "mer", "qui", "ze", "ol", "in", "ber", "cor", "ez"};
    std::string word;
    for (std::size_t i = 0; i < syllables; ++i) word += kSyllables[random() % kSyllables.size()];
    word[0] = static_cast<char>(word[0] - 'a' + 'A');
    return word;
}

// Karaoke libraries are dominated by a few thousand artists, disc codes and
// a small vocabulary of title words with a long tail.
std::vector<Song> makeLibrary() {
    static constexpr std::array<const char*, 40> kCommonTitleWords{
        "Love", "You", "Me",    "The",   "I",     "My",    "Heart", "Night", "Baby",  "Don't",
        "Time", "Go",  "Do",    "Away",  "Girl",  "Good",  "Life",  "Back",  "Dance", "Rain",
        "Home", "One", "Blue",  "Fire",  "Dream", "Song",  "Let",   "In",    "On",    "Your",
        "All",  "Way", "Stand", "Light", "Woman", "Crazy", "Again", "Tonight", "Feel", "Forever"};
    static constexpr std::array<const char*, 8> kGenres{"Pop", "Rock", "Country", "Soul",
                                                        "Latin", "Oldies", "Duets", "Hip-Hop"};
    std::mt19937 random(500000);
    std::vector<std::string> artists;
    for (int i = 0; i < 20000; ++i) {
        artists.push_back(syllableWord(random, 1 + random() % 3) + " " + syllableWord(random, 2 + random() % 2));
    }
    std::vector<std::string> rareWords;
    for (int i = 0; i < 40000; ++i) rareWords.push_back(syllableWord(random, 1 + random() % 4));
    // Zipf-like: low indices much more likely.
    const auto skewed = [&](std::size_t size) {
        const double u = std::uniform_real_distribution<double>(0.0, 1.0)(random);
        return static_cast<std::size_t>(static_cast<double>(size) * u * u * u) % size;
    };

    std::vector<Song> songs;
    songs.reserve(kLibrarySongs);
    for (std::size_t i = 0; i < kLibrarySongs; ++i) {
        const std::string& artist = artists[skewed(artists.size())];
        std::string title;
        const std::size_t words = 1 + random() % 5;
        for (std::size_t w = 0; w < words; ++w) {
            if (!title.empty()) title += ' ';
            title += random() % 3 == 0 ? rareWords[skewed(rareWords.size())]
                                       : kCommonTitleWords[skewed(kCommonTitleWords.size())];
        }
        const unsigned disc = 1000 + random() % 9000;
        const std::string code = "SC" + std::to_string(disc) + "-" + std::to_string(10 + random() % 20);
        Song song;
        song.id = static_cast<std::int32_t>(i + 1);
        song.path = "/srv/karaoke/" + std::string(kGenres[random() % kGenres.size()]) + "/" + artist.substr(0, 1) +
                    "/" + artist + "/" + code + " - " + artist + " - " + title + ".mp3";
        song.artist = artist;
        song.title = title;
        song.format = "mp3";
        songs.push_back(std::move(song));
    }
    return songs;
}

const std::vector<Song>& library() {
    static const std::vector<Song> songs = makeLibrary();
    return songs;
}

const CommonFilenameWordCache& builtCache() {
    static const auto cache = [] {
        auto built = buildCommonFilenameWordCache(library(), kDefaultCommonWordLimit, {});
        if (!built) throw std::runtime_error("the benchmark library gave no cache");
        return built;
    }();
    return *cache;
}

void BM_BuildCache(benchmark::State& state) {
    const auto& songs = library();
    ::setenv("TAMO_COMMON_CACHE_WORKERS", std::to_string(state.range(0)).c_str(), 1);
    std::shared_ptr<const CommonFilenameWordCache> cache;
    for (auto _ : state) {
        cache.reset();
        cache = buildCommonFilenameWordCache(songs, kDefaultCommonWordLimit, {});
        if (!cache) state.SkipWithError("no cache");
    }
    ::unsetenv("TAMO_COMMON_CACHE_WORKERS");
    if (!cache) return;
    const auto& summary = cache->summary();
    state.counters["songs"] = static_cast<double>(summary.files);
    state.counters["entries"] = static_cast<double>(summary.words);
    state.counters["distinct"] = static_cast<double>(summary.distinctWords);
    state.counters["postings"] = static_cast<double>(summary.postings);
    state.counters["states"] = static_cast<double>(summary.automatonStates);
    state.counters["MiB"] = static_cast<double>(summary.bytes) / (1024.0 * 1024.0);
}
BENCHMARK(BM_BuildCache)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// "love" is in almost half of the names; the other word is the cached word
// whose postings come nearest to a thousand, spread over the whole library,
// which is where a linear search with a row limit hurts most.
std::string queryWord(int which) {
    if (which == 0) return "love";
    const auto& entries = builtCache().entries();
    const auto distance = [](const CommonFilenameWordEntry& entry) {
        const auto size = static_cast<long>(entry.postings.size());
        return size > 1000 ? size - 1000 : 1000 - size;
    };
    return std::min_element(entries.begin(), entries.end(),
                            [&](const auto& a, const auto& b) { return distance(a) < distance(b); })
        ->word;
}

void BM_CachedLookup(benchmark::State& state) {
    const auto& songs = library();
    const auto& cache = builtCache();
    const std::string word = queryWord(static_cast<int>(state.range(0)));
    std::size_t postings = 0;
    for (auto _ : state) {
        std::span<const std::uint32_t> positions;
        std::vector<SongSearchRow> rows;
        if (cache.lookup(word, positions)) {
            postings = positions.size();
            rows.reserve(std::min(positions.size(), kRowLimit));
            for (const std::uint32_t position : positions) {
                if (rows.size() == kRowLimit) break;
                if (position < songs.size()) rows.push_back(makeSongSearchRow(songs[position]));
            }
        }
        benchmark::DoNotOptimize(rows.data());
    }
    state.SetLabel(word);
    state.counters["postings"] = static_cast<double>(postings);
}
BENCHMARK(BM_CachedLookup)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// The path taken without a cache: the same word, filtered from the start of
// the library, first with the box's row limit and then to the end.
void BM_LinearSearch(benchmark::State& state) {
    const auto& songs = library();
    const std::string word = queryWord(static_cast<int>(state.range(0)));
    const std::size_t limit = state.range(1) != 0 ? kRowLimit : 0;
    std::size_t found = 0;
    for (auto _ : state) {
        const auto rows = searchSongRows(songs, word, SongSearchField::FileName, SongSearchMode::AllWords, limit);
        found = rows.size();
        benchmark::DoNotOptimize(rows.data());
    }
    state.SetLabel(word + (limit != 0 ? ", 250 rows" : ", all rows"));
    state.counters["rows"] = static_cast<double>(found);
}
BENCHMARK(BM_LinearSearch)->Args({0, 1})->Args({0, 0})->Args({1, 1})->Args({1, 0})->Unit(benchmark::kMicrosecond);

// Real empty files: seven in ten are ".mp3" with graphics beside them, the
// rest videos; a thousand to a folder.
class PreflightLibrary {
public:
    PreflightLibrary() {
        std::string pattern = (fs::temp_directory_path() / "tamo-bench-preflight-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        root_ = pattern;
        songs_.reserve(kPreflightSongs);
        for (std::size_t i = 0; i < kPreflightSongs; ++i) {
            const fs::path folder = root_ / ("disc" + std::to_string(i / 1000));
            if (i % 1000 == 0) fs::create_directory(folder);
            const bool audio = i % 10 < 7;
            const std::string stem = "SC" + std::to_string(i) + " - Artist - Title";
            Song song;
            song.id = static_cast<std::int32_t>(i + 1);
            song.path = (folder / (stem + (audio ? ".mp3" : ".mp4"))).string();
            song.format = audio ? "mp3" : "mp4";
            std::ofstream{song.path};
            if (audio) {
                song.cdgPath = (folder / (stem + ".cdg")).string();
                std::ofstream{song.cdgPath};
            }
            songs_.push_back(std::move(song));
        }
    }
    ~PreflightLibrary() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    PreflightLibrary(const PreflightLibrary&) = delete;
    PreflightLibrary& operator=(const PreflightLibrary&) = delete;

    const std::vector<Song>& songs() const { return songs_; }

private:
    fs::path root_;
    std::vector<Song> songs_;
};

std::unique_ptr<PreflightLibrary> preflightLibrary;

void BM_Preflight(benchmark::State& state) {
    if (!preflightLibrary) preflightLibrary = std::make_unique<PreflightLibrary>();
    ::setenv("TAMO_PREFLIGHT_WORKERS", std::to_string(state.range(0)).c_str(), 1);
    std::size_t issues = 0;
    for (auto _ : state) {
        const PreflightResult result = runMediaPreflight(preflightLibrary->songs(), {});
        issues = result.issues.size();
    }
    ::unsetenv("TAMO_PREFLIGHT_WORKERS");
    state.counters["songs"] = static_cast<double>(kPreflightSongs);
    state.counters["issues"] = static_cast<double>(issues);
}
BENCHMARK(BM_Preflight)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    preflightLibrary.reset();
    return 0;
}
