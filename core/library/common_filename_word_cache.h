#pragma once

#include "song.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

inline constexpr std::int64_t kSmallestCommonWordLimit = 100;
inline constexpr std::int64_t kLargestCommonWordLimit = 50000;
inline constexpr std::int64_t kDefaultCommonWordLimit = 25000;
inline constexpr std::size_t kLongestFilenameWord = 48;
inline constexpr std::size_t kMostFilenameWords = 128;
// Counting stops a pathological library from eating memory: each distinct
// word costs its length plus this overhead against the budget.
inline constexpr std::uint64_t kCommonWordByteBudget = 0x8000000;
inline constexpr std::uint64_t kCommonWordOverhead = 64;
inline constexpr std::uint64_t kCommonWordParallelSongs = 1024;
inline constexpr std::uint64_t kCommonWordSongsPerWorker = 512;
inline constexpr std::uint64_t kCommonWordStateBudget = 0x80000;
// How long the shell waits before building again after a failed build.
inline constexpr std::chrono::seconds kCommonWordRetryDelay{30};

// The word limit the build really uses, whatever the settings file says.
std::int64_t clampCommonWordLimit(std::int64_t wordLimit);

// The part of a path whose words count: the text after the last "/" or
// backslash, cut at its first ".", so neither the extension nor anything
// after an earlier dot is indexed.
std::string_view filenameWordText(std::string_view path);

// The distinct words of a file name, sorted: maximal runs of ASCII letters
// and digits of filenameWordText, lower-cased, runs over 48 bytes dropped.
// False, with words empty, when the name holds more than 128 words.
bool extractFilenameWords(std::string_view path, std::vector<std::string>& words);

// Workers for a build over songCount songs: one under 1024 songs, else
// TAMO_COMMON_CACHE_WORKERS or the hardware, at most 8 and one per 512 songs.
unsigned commonWordWorkerCount(std::uint64_t songCount);

struct CommonFilenameWordEntry {
    std::string word;
    // Positions in the song list the cache was built from, ascending.
    std::vector<std::uint32_t> postings;
};

// What the diagnostics view shows of a build.
struct CommonFilenameWordSummary {
    std::uint64_t files = 0;
    std::uint64_t words = 0;
    std::uint64_t postings = 0;
    std::uint64_t distinctWords = 0;
    std::uint64_t automatonStates = 0;
    std::uint64_t bytes = 0;
    std::int64_t wordLimit = 0;
    unsigned workers = 0;
    std::chrono::nanoseconds buildDuration{0};
};

// An inverted index of the most frequent file-name words of one search
// snapshot. Immutable after the build but for the hit and miss counters, so
// any thread may look words up at once.
class CommonFilenameWordCache {
public:
    CommonFilenameWordCache(std::vector<CommonFilenameWordEntry> entries, CommonFilenameWordSummary summary);
    CommonFilenameWordCache(const CommonFilenameWordCache&) = delete;
    CommonFilenameWordCache& operator=(const CommonFilenameWordCache&) = delete;

    // Sorted by word in byte order.
    const std::vector<CommonFilenameWordEntry>& entries() const { return entries_; }
    const CommonFilenameWordSummary& summary() const { return summary_; }

    // Exact lookup of a normalised query, taken whole: a query of several
    // words simply misses. Counts a hit or a miss.
    bool lookup(std::string_view word, std::vector<std::uint32_t>& postings) const;
    // The same without copying: the postings stay owned by the cache.
    bool lookup(std::string_view word, std::span<const std::uint32_t>& postings) const;

    std::uint64_t hits() const { return hits_.load(std::memory_order_relaxed); }
    std::uint64_t misses() const { return misses_.load(std::memory_order_relaxed); }

private:
    const CommonFilenameWordEntry* find(std::string_view word) const;

    std::vector<CommonFilenameWordEntry> entries_;
    CommonFilenameWordSummary summary_;
    mutable std::atomic<std::uint64_t> hits_{0};
    mutable std::atomic<std::uint64_t> misses_{0};
};

// (songs done, song count). Called from the workers, one call at a time, with
// done never going back.
using CommonWordProgress = std::function<void(std::uint64_t, std::uint64_t)>;

// Builds the cache from songs, which nobody may change meanwhile. Empty when
// cancelled (tested between files), when a name holds too many words, when
// counting outgrows its byte budget, and on any failure, memory exhaustion
// included: the cache is never worth an error.
std::shared_ptr<const CommonFilenameWordCache> buildCommonFilenameWordCache(
    const std::vector<Song>& songs, std::int64_t wordLimit, std::stop_token cancel,
    const CommonWordProgress& progress = {});

// One line for the diagnostics view.
std::string describeCommonFilenameWordCache(const CommonFilenameWordCache& cache);

}  // namespace tamo::core
