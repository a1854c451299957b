#include "common_filename_word_cache.h"

#include "parallel_slices.h"
#include "word_automaton.h"
#include "worker_count.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace tamo::core {
namespace {

constexpr std::uint32_t kMostCount = 0xFFFFFFFFU;
constexpr std::uint32_t kNoSong = 0xFFFFFFFFU;
// Progress is reported in batches so the callback's lock stays cold.
constexpr std::uint64_t kProgressBatch = 4096;

struct WordHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view word) const noexcept { return std::hash<std::string_view>{}(word); }
};
using WordCounts = std::unordered_map<std::string, std::uint32_t, WordHash, std::equal_to<>>;

// The words of one name as views into lowered, which is reused from file to
// file so that extraction allocates nothing once warm.
bool collectWords(std::string_view path, std::string& lowered, std::vector<std::string_view>& words) {
    const std::string_view text = filenameWordText(path);
    lowered.assign(text);
    words.clear();
    const std::size_t size = lowered.size();
    std::size_t at = 0;
    while (at < size) {
        if (wordSymbol(lowered[at]) < 0) {
            ++at;
            continue;
        }
        const std::size_t start = at;
        for (; at < size && wordSymbol(lowered[at]) >= 0; ++at) {
            char& byte = lowered[at];
            if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
        }
        if (at - start > kLongestFilenameWord) continue;
        if (words.size() == kMostFilenameWords) {
            words.clear();
            return false;
        }
        words.emplace_back(lowered.data() + start, at - start);
    }
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return true;
}

void addSaturating(std::uint32_t& count, std::uint32_t more) {
    count = more > kMostCount - count ? kMostCount : count + more;
}

void bumpSaturating(std::atomic<std::uint64_t>& counter) {
    std::uint64_t value = counter.load(std::memory_order_relaxed);
    while (value != std::numeric_limits<std::uint64_t>::max() &&
           !counter.compare_exchange_weak(value, value + 1, std::memory_order_relaxed)) {
    }
}

// Both passes feed one progress figure: each file counts half a song in the
// counting pass and half in the posting pass.
class ProgressReporter {
public:
    ProgressReporter(const CommonWordProgress& progress, std::uint64_t songs) : progress_(progress), songs_(songs) {}

    void add(std::uint64_t halfSongs) {
        if (!progress_ || halfSongs == 0) return;
        std::lock_guard lock(mutex_);
        halfSongs_ += halfSongs;
        progress_(halfSongs_ / 2, songs_);
    }

    void finish() {
        if (!progress_) return;
        std::lock_guard lock(mutex_);
        progress_(songs_, songs_);
    }

private:
    const CommonWordProgress& progress_;
    const std::uint64_t songs_;
    std::mutex mutex_;
    std::uint64_t halfSongs_ = 0;
};

// Whatever a worker throws also tells the others to stop.
template <typename Body>
auto guarded(std::atomic<bool>& failed, Body body) {
    return [&failed, body](unsigned worker, std::uint64_t begin, std::uint64_t end) {
        try {
            body(worker, begin, end);
        } catch (...) {
            failed.store(true, std::memory_order_relaxed);
            throw;
        }
    };
}

bool rankedBefore(const WordCounts::value_type* a, const WordCounts::value_type* b) {
    if (a->second != b->second) return a->second > b->second;
    return a->first < b->first;
}

std::uint64_t estimateBytes(const std::vector<CommonFilenameWordEntry>& entries) {
    std::uint64_t bytes = sizeof(CommonFilenameWordCache) + entries.capacity() * sizeof(CommonFilenameWordEntry);
    const std::size_t inlineCapacity = std::string().capacity();
    for (const CommonFilenameWordEntry& entry : entries) {
        if (entry.word.capacity() > inlineCapacity) bytes += entry.word.capacity() + 1;
        bytes += entry.postings.capacity() * sizeof(std::uint32_t);
    }
    return bytes;
}

std::shared_ptr<const CommonFilenameWordCache> build(const std::vector<Song>& songs, std::int64_t wordLimit,
                                                     const std::stop_token& cancel,
                                                     const CommonWordProgress& progress) {
    const auto started = std::chrono::steady_clock::now();
    const std::uint64_t songCount = songs.size();
    if (songCount >= 0xFFFFFFFFULL) return nullptr;
    const std::int64_t limit = clampCommonWordLimit(wordLimit);
    const unsigned workers = commonWordWorkerCount(songCount);
    std::atomic<bool> failed{false};
    const auto shouldStop = [&] { return failed.load(std::memory_order_relaxed) || cancel.stop_requested(); };
    ProgressReporter reporter(progress, songCount);

    std::vector<WordCounts> counts(workers);
    runInSlices(songCount, workers, guarded(failed, [&](unsigned worker, std::uint64_t begin, std::uint64_t end) {
        WordCounts& mine = counts[worker];
        std::uint64_t bytes = 0;
        std::string lowered;
        std::vector<std::string_view> words;
        words.reserve(kMostFilenameWords);
        std::uint64_t unreported = 0;
        for (std::uint64_t position = begin; position < end; ++position) {
            if (shouldStop()) return;
            if (!collectWords(songs[position].path, lowered, words)) {
                failed.store(true, std::memory_order_relaxed);
                return;
            }
            for (const std::string_view word : words) {
                if (const auto found = mine.find(word); found != mine.end()) {
                    addSaturating(found->second, 1);
                    continue;
                }
                bytes += word.size() + kCommonWordOverhead;
                if (bytes > kCommonWordByteBudget) {
                    failed.store(true, std::memory_order_relaxed);
                    return;
                }
                mine.emplace(std::string(word), 1U);
            }
            if (++unreported == kProgressBatch) reporter.add(std::exchange(unreported, 0));
        }
        reporter.add(unreported);
    }));
    if (shouldStop()) return nullptr;

    WordCounts merged = std::move(counts.front());
    std::uint64_t mergedBytes = 0;
    for (const auto& [word, count] : merged) mergedBytes += word.size() + kCommonWordOverhead;
    for (std::size_t worker = 1; worker < counts.size(); ++worker) {
        if (cancel.stop_requested()) return nullptr;
        WordCounts& other = counts[worker];
        for (auto it = other.begin(); it != other.end();) {
            const auto next = std::next(it);
            if (const auto found = merged.find(it->first); found != merged.end()) {
                addSaturating(found->second, it->second);
            } else {
                mergedBytes += it->first.size() + kCommonWordOverhead;
                if (mergedBytes > kCommonWordByteBudget) return nullptr;
                merged.insert(other.extract(it));
            }
            it = next;
        }
        WordCounts().swap(other);
    }

    std::vector<const WordCounts::value_type*> ranked;
    ranked.reserve(merged.size());
    for (const auto& item : merged) ranked.push_back(&item);
    const std::size_t considered = std::min(ranked.size(), static_cast<std::size_t>(limit));
    std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(considered), ranked.end(),
                      rankedBefore);
    // The sum of lengths bounds the automaton's states whatever prefixes
    // the words share; the first word that would pass it ends the list.
    std::uint64_t states = 1;
    std::vector<std::string> words;
    words.reserve(considered);
    for (std::size_t i = 0; i < considered; ++i) {
        const std::string& word = ranked[i]->first;
        if (states + word.size() > kCommonWordStateBudget) break;
        states += word.size();
        words.push_back(word);
    }
    const std::uint64_t distinctWords = merged.size();
    ranked = {};
    WordCounts().swap(merged);
    std::sort(words.begin(), words.end());

    const WordAutomaton automaton(words);
    const std::size_t wordCount = words.size();
    std::vector<std::vector<std::vector<std::uint32_t>>> lists(workers);
    runInSlices(songCount, workers, guarded(failed, [&](unsigned worker, std::uint64_t begin, std::uint64_t end) {
        std::vector<std::vector<std::uint32_t>>& mine = lists[worker];
        mine.resize(wordCount);
        // A word seen twice in one name must post the song once.
        std::vector<std::uint32_t> lastSeen(wordCount, kNoSong);
        std::uint64_t unreported = 0;
        for (std::uint64_t position = begin; position < end; ++position) {
            if (shouldStop()) return;
            const auto song = static_cast<std::uint32_t>(position);
            automaton.scan(filenameWordText(songs[position].path), [&](std::int32_t word) {
                const auto index = static_cast<std::size_t>(word);
                if (lastSeen[index] == song) return;
                lastSeen[index] = song;
                mine[index].push_back(song);
            });
            if (++unreported == kProgressBatch) reporter.add(std::exchange(unreported, 0));
        }
        reporter.add(unreported);
    }));
    if (shouldStop()) return nullptr;

    std::vector<CommonFilenameWordEntry> entries(wordCount);
    std::uint64_t postingCount = 0;
    for (std::size_t index = 0; index < wordCount; ++index) {
        CommonFilenameWordEntry& entry = entries[index];
        entry.word = std::move(words[index]);
        std::size_t total = 0;
        for (const auto& mine : lists) total += mine[index].size();
        // Worker order is slice order, so appending keeps postings ascending.
        entry.postings.reserve(total);
        for (auto& mine : lists) {
            entry.postings.insert(entry.postings.end(), mine[index].begin(), mine[index].end());
            std::vector<std::uint32_t>().swap(mine[index]);
        }
        postingCount += total;
    }
    lists = {};

    CommonFilenameWordSummary summary;
    summary.files = songCount;
    summary.words = wordCount;
    summary.postings = postingCount;
    summary.distinctWords = distinctWords;
    summary.automatonStates = automaton.stateCount();
    summary.bytes = estimateBytes(entries);
    summary.wordLimit = limit;
    summary.workers = workers;
    summary.buildDuration = std::chrono::steady_clock::now() - started;
    reporter.finish();
    return std::make_shared<const CommonFilenameWordCache>(std::move(entries), summary);
}

}  // namespace

std::int64_t clampCommonWordLimit(std::int64_t wordLimit) {
    return std::clamp(wordLimit, kSmallestCommonWordLimit, kLargestCommonWordLimit);
}

std::string_view filenameWordText(std::string_view path) {
    // A plain loop: find_last_of calls memchr once per byte, and this runs
    // twice for every song of the library.
    std::size_t start = path.size();
    while (start > 0 && path[start - 1] != '/' && path[start - 1] != '\\') --start;
    const std::string_view name = path.substr(start);
    return name.substr(0, name.find('.'));
}

bool extractFilenameWords(std::string_view path, std::vector<std::string>& words) {
    std::string lowered;
    std::vector<std::string_view> views;
    words.clear();
    if (!collectWords(path, lowered, views)) return false;
    words.assign(views.begin(), views.end());
    return true;
}

unsigned commonWordWorkerCount(std::uint64_t songCount) {
    if (songCount < kCommonWordParallelSongs) return 1;
    return chooseWorkerCount("TAMO_COMMON_CACHE_WORKERS", songCount / kCommonWordSongsPerWorker);
}

CommonFilenameWordCache::CommonFilenameWordCache(std::vector<CommonFilenameWordEntry> entries,
                                                 CommonFilenameWordSummary summary)
    : entries_(std::move(entries)), summary_(summary) {}

const CommonFilenameWordEntry* CommonFilenameWordCache::find(std::string_view word) const {
    const auto found = std::lower_bound(entries_.begin(), entries_.end(), word,
                                        [](const CommonFilenameWordEntry& entry, std::string_view key) {
                                            return std::string_view(entry.word) < key;
                                        });
    if (found == entries_.end() || found->word != word) {
        bumpSaturating(misses_);
        return nullptr;
    }
    bumpSaturating(hits_);
    return &*found;
}

bool CommonFilenameWordCache::lookup(std::string_view word, std::vector<std::uint32_t>& postings) const {
    const CommonFilenameWordEntry* entry = find(word);
    if (entry == nullptr) return false;
    postings = entry->postings;
    return true;
}

bool CommonFilenameWordCache::lookup(std::string_view word, std::span<const std::uint32_t>& postings) const {
    const CommonFilenameWordEntry* entry = find(word);
    if (entry == nullptr) return false;
    postings = entry->postings;
    return true;
}

std::shared_ptr<const CommonFilenameWordCache> buildCommonFilenameWordCache(const std::vector<Song>& songs,
                                                                            std::int64_t wordLimit,
                                                                            std::stop_token cancel,
                                                                            const CommonWordProgress& progress) {
    try {
        return build(songs, wordLimit, cancel, progress);
    } catch (...) {
        return nullptr;
    }
}

std::string describeCommonFilenameWordCache(const CommonFilenameWordCache& cache) {
    const CommonFilenameWordSummary& summary = cache.summary();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(summary.buildDuration).count();
    const std::uint64_t tenthsOfMiB = summary.bytes * 10 / (1024 * 1024);
    std::string text = "Common word cache: " + std::to_string(summary.words) + " of " +
                       std::to_string(summary.distinctWords) + " words, " + std::to_string(summary.postings) +
                       " postings from " + std::to_string(summary.files) + " files; built in " +
                       std::to_string(milliseconds) + " ms with " + std::to_string(summary.workers) +
                       (summary.workers == 1 ? " worker; " : " workers; ") + std::to_string(tenthsOfMiB / 10) +
                       "." + std::to_string(tenthsOfMiB % 10) + " MiB; " + std::to_string(cache.hits()) + " hits, " +
                       std::to_string(cache.misses()) + " misses";
    return text;
}

}  // namespace tamo::core
