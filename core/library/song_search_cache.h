#pragma once

#include "song_search.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

// One cached answer of the operator's search box.
struct SongSearchResult {
    std::string query;  // normalised
    SongSearchField field = SongSearchField::FileName;
    SongSearchMode mode = SongSearchMode::AllWords;
    SongSearchSnapshot snapshot;
    std::vector<SongSearchRow> rows;
    std::uint64_t bytes = 0;
};

// The memory an entry is charged for, from the capacities it holds,
// saturating at the largest u64.
std::uint64_t songSearchResultCost(const SongSearchResult& result);

// Recent results, oldest first, bounded by count and by bytes. Entries of an
// older snapshot stop matching and leave by age. UI thread only.
class SongSearchResultCache {
public:
    static constexpr std::size_t kMaxEntries = 12;
    static constexpr std::uint64_t kMaxBytes = 0x200000;

    // The entry with this query, field, mode and snapshot, moved to the end
    // as the most recently used; nullptr if there is none.
    const SongSearchResult* find(std::string_view normalizedQuery, SongSearchField field, SongSearchMode mode,
                                 const SongSearchSnapshot& snapshot);

    // Adds a result after charging its cost (stored in bytes). An entry with
    // the same key leaves first. A result without a snapshot or costing more
    // than the whole budget is not kept (nullptr); otherwise the oldest
    // entries leave until it fits.
    const SongSearchResult* store(SongSearchResult result);

    std::size_t size() const { return entries_.size(); }
    std::uint64_t totalBytes() const { return totalBytes_; }
    const std::vector<SongSearchResult>& entries() const { return entries_; }
    void clear();

private:
    std::vector<SongSearchResult> entries_;
    std::uint64_t totalBytes_ = 0;
};

}  // namespace tamo::core
