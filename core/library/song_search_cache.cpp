#include "song_search_cache.h"

#include <algorithm>
#include <limits>

namespace tamo::core {
namespace {

constexpr std::uint64_t kSaturated = std::numeric_limits<std::uint64_t>::max();

std::uint64_t add(std::uint64_t a, std::uint64_t b) { return a > kSaturated - b ? kSaturated : a + b; }

std::uint64_t multiply(std::uint64_t a, std::uint64_t b) {
    return (b != 0 && a > kSaturated / b) ? kSaturated : a * b;
}

bool sameKey(const SongSearchResult& entry, std::string_view query, SongSearchField field, SongSearchMode mode,
             const SongSearchSnapshot& snapshot) {
    return entry.snapshot == snapshot && entry.field == field && entry.mode == mode && entry.query == query;
}

}  // namespace

std::uint64_t songSearchResultCost(const SongSearchResult& result) {
    std::uint64_t cost = add(120, result.query.capacity());
    cost = add(cost, 32);
    cost = add(cost, multiply(104, result.rows.capacity()));
    for (const SongSearchRow& row : result.rows) {
        cost = add(cost, 32);
        cost = add(cost, row.title.capacity());
        cost = add(cost, row.artist.capacity());
        cost = add(cost, row.fileName.capacity());
    }
    return cost;
}

const SongSearchResult* SongSearchResultCache::find(std::string_view normalizedQuery, SongSearchField field,
                                                    SongSearchMode mode, const SongSearchSnapshot& snapshot) {
    if (!snapshot) return nullptr;
    const auto hit = std::find_if(entries_.begin(), entries_.end(), [&](const SongSearchResult& entry) {
        return sameKey(entry, normalizedQuery, field, mode, snapshot);
    });
    if (hit == entries_.end()) return nullptr;
    std::rotate(hit, hit + 1, entries_.end());
    return &entries_.back();
}

const SongSearchResult* SongSearchResultCache::store(SongSearchResult result) {
    result.bytes = songSearchResultCost(result);
    const auto same = std::find_if(entries_.begin(), entries_.end(), [&](const SongSearchResult& entry) {
        return sameKey(entry, result.query, result.field, result.mode, result.snapshot);
    });
    if (same != entries_.end()) {
        totalBytes_ -= same->bytes;
        entries_.erase(same);
    }
    if (!result.snapshot || result.bytes > kMaxBytes) return nullptr;

    std::size_t drop = 0;
    std::uint64_t remaining = totalBytes_;
    while (drop < entries_.size() && (entries_.size() - drop >= kMaxEntries || remaining + result.bytes > kMaxBytes)) {
        remaining -= entries_[drop].bytes;
        ++drop;
    }
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(drop));
    totalBytes_ = remaining + result.bytes;
    entries_.push_back(std::move(result));
    return &entries_.back();
}

void SongSearchResultCache::clear() {
    entries_.clear();
    totalBytes_ = 0;
}

}  // namespace tamo::core
