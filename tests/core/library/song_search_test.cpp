#include "library_test_support.h"
#include "song_search.h"
#include "song_search_cache.h"

#include <gtest/gtest.h>

namespace tamo::core {
namespace {

Song song(std::int32_t id, std::string path, std::string artist, std::string title) {
    return Song{id, std::move(path), std::move(title), std::move(artist), "mp3", ""};
}

std::vector<std::int32_t> ids(const std::vector<Song>& songs) {
    std::vector<std::int32_t> out;
    for (const auto& s : songs) out.push_back(s.id);
    return out;
}

std::vector<Song> library() {
    return {
        song(1, "/m/Beatles/The Beatles - Let It Be.mp3", "The Beatles", "Let It Be"),
        song(2, "/m/Beatles/The Beatles - Yesterday.mp4", "The Beatles", "Yesterday"),
        song(3, "/m/Misc/Öl - Über Alles.mp3", "Öl", "Über Alles"),
        song(4, "/m/Misc/öl - über alles.mp3", "öl", "über alles"),
        song(5, "/m/Beatles Tribute/ABC - XYZ Medley.mp3", "ABC", "XYZ Medley"),
        song(6, "C:\\old\\abc only.mp3", "", "abc only"),
        song(7, "/m/xyz/plain.webm", "", "plain"),
    };
}

TEST(SongSearch, NormalisesOnlyAsciiWhiteSpaceAndCapitals) {
    EXPECT_EQ(normalizeSearchQuery("  BEATLES \t"), "beatles");
    EXPECT_EQ(normalizeSearchQuery("Let IT Be"), "let it be");
    EXPECT_EQ(normalizeSearchQuery("ÖL"), "Öl");
    EXPECT_EQ(normalizeSearchQuery(" \n "), "");

    const auto songs = library();
    EXPECT_EQ(ids(searchSongs(songs, "  BEATLES ", 0)), ids(searchSongs(songs, "beatles", 0)));
    EXPECT_EQ(ids(searchSongs(songs, "beatles", 0)), (std::vector<std::int32_t>{1, 2}));
    // Non-ASCII letters match byte for byte only.
    EXPECT_EQ(ids(searchSongs(songs, "Öl", 0)), (std::vector<std::int32_t>{3}));
    EXPECT_EQ(ids(searchSongs(songs, "öl", 0)), (std::vector<std::int32_t>{4}));
    EXPECT_EQ(ids(searchSongs(songs, "ÜBER", 0)), (std::vector<std::int32_t>{3}));
    EXPECT_EQ(ids(searchSongs(songs, "üBER", 0)), (std::vector<std::int32_t>{4}));
}

TEST(SongSearch, MatchesWordsInTheChosenField) {
    const auto songs = library();
    const auto matching = [&](std::string_view query, SongSearchField field, SongSearchMode mode) {
        std::vector<std::int32_t> out;
        for (const auto& s : songs) {
            if (songMatches(s, query, field, mode)) out.push_back(s.id);
        }
        return out;
    };
    using F = SongSearchField;
    using M = SongSearchMode;
    // File name only: folder names don't count, the extension does.
    EXPECT_EQ(matching("tribute", F::FileName, M::AllWords), std::vector<std::int32_t>{});
    EXPECT_EQ(matching("mp3", F::FileName, M::AllWords), (std::vector<std::int32_t>{1, 3, 4, 5, 6}));
    EXPECT_EQ(matching("xyz", F::FileName, M::AllWords), (std::vector<std::int32_t>{5}));
    EXPECT_EQ(matching("old", F::FileName, M::AllWords), std::vector<std::int32_t>{});  // after the backslash
    EXPECT_EQ(matching("abc xyz", F::FileName, M::AllWords), (std::vector<std::int32_t>{5}));
    EXPECT_EQ(matching("xyz abc", F::FileName, M::AllWords), (std::vector<std::int32_t>{5}));
    EXPECT_EQ(matching("abc xyz", F::FileName, M::AnyWord), (std::vector<std::int32_t>{5, 6}));
    EXPECT_EQ(matching("beatles", F::Artist, M::AllWords), (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(matching("beatles", F::Title, M::AllWords), std::vector<std::int32_t>{});
    EXPECT_EQ(matching("yesterday let", F::Title, M::AnyWord), (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(matching("", F::Title, M::AnyWord).size(), songs.size());
    EXPECT_EQ(matching("   ", F::FileName, M::AllWords), std::vector<std::int32_t>{});
    EXPECT_EQ(matching("   ", F::FileName, M::AnyWord), std::vector<std::int32_t>{});

    EXPECT_EQ(songSearchFieldFromIndex(1), F::Artist);
    EXPECT_EQ(songSearchFieldFromIndex(2), F::Title);
    EXPECT_EQ(songSearchFieldFromIndex(0), F::FileName);
    EXPECT_EQ(songSearchFieldFromIndex(-1), F::FileName);
    EXPECT_EQ(songSearchModeFromIndex(1), M::AnyWord);
    EXPECT_EQ(songSearchModeFromIndex(3), M::AllWords);
}

TEST(SongSearch, FiltersInLibraryOrderUpToTheLimit) {
    const auto songs = library();
    EXPECT_EQ(ids(searchSongs(songs, "mp3", 1)), std::vector<std::int32_t>{1});
    EXPECT_EQ(ids(searchSongs(songs, "mp3", 2)), (std::vector<std::int32_t>{1, 3}));
    EXPECT_EQ(ids(searchSongs(songs, "", 3)), (std::vector<std::int32_t>{1, 2, 3}));
    EXPECT_EQ(searchSongs(songs, "", 0).size(), songs.size());
    EXPECT_TRUE(searchSongs({}, "x", 5).empty());

    const auto rows = searchSongRows(songs, "abc", SongSearchField::FileName, SongSearchMode::AllWords, 250);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], (SongSearchRow{5, "XYZ Medley", "ABC", "ABC - XYZ Medley.mp3"}));
    EXPECT_EQ(rows[1].fileName, "abc only.mp3");
    EXPECT_EQ(songFileName("no-separator.mp3"), "no-separator.mp3");
}

SongSearchResult result(std::string query, const SongSearchSnapshot& snapshot, std::size_t rows,
                        std::size_t titleBytes = 10) {
    SongSearchResult r;
    r.query = std::move(query);
    r.snapshot = snapshot;
    for (std::size_t i = 0; i < rows; ++i) {
        r.rows.push_back(SongSearchRow{static_cast<std::int32_t>(i + 1), std::string(titleBytes, 't'), "a", "f.mp3"});
    }
    return r;
}

TEST(SongSearchResultCache, ChargesByCapacityAndBoundsCountAndBytes) {
    SongSearchResult costed;
    costed.query.reserve(40);
    costed.rows.reserve(3);
    costed.rows.push_back(SongSearchRow{1, std::string(100, 't'), std::string(50, 'a'), std::string(20, 'f')});
    const std::uint64_t expected = 120 + costed.query.capacity() + 32 + 104 * costed.rows.capacity() + 32 +
                                   costed.rows[0].title.capacity() + costed.rows[0].artist.capacity() +
                                   costed.rows[0].fileName.capacity();
    EXPECT_EQ(songSearchResultCost(costed), expected);

    const auto snapshot = makeSongSearchSnapshot(library());
    SongSearchResultCache cache;
    for (int i = 0; i < 13; ++i) ASSERT_NE(cache.store(result("q" + std::to_string(i), snapshot, 2)), nullptr);
    EXPECT_EQ(cache.size(), 12u);
    EXPECT_EQ(cache.find("q0", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);

    // A hit becomes the most recent entry and so survives the next eviction.
    ASSERT_NE(cache.find("q1", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);
    cache.store(result("q13", snapshot, 2));
    EXPECT_NE(cache.find("q1", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);
    EXPECT_EQ(cache.find("q2", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);

    // Other field, mode or snapshot: a different key.
    EXPECT_EQ(cache.find("q1", SongSearchField::Artist, SongSearchMode::AllWords, snapshot), nullptr);
    EXPECT_EQ(cache.find("q1", SongSearchField::FileName, SongSearchMode::AnyWord, snapshot), nullptr);
    EXPECT_EQ(cache.find("q1", SongSearchField::FileName, SongSearchMode::AllWords, makeSongSearchSnapshot(library())),
              nullptr);

    // The same key replaces the older entry rather than adding one.
    const std::size_t before = cache.size();
    cache.store(result("q1", snapshot, 5));
    EXPECT_EQ(cache.size(), before);
    EXPECT_EQ(cache.find("q1", SongSearchField::FileName, SongSearchMode::AllWords, snapshot)->rows.size(), 5u);

    std::uint64_t sum = 0;
    for (const auto& entry : cache.entries()) sum += entry.bytes;
    EXPECT_EQ(cache.totalBytes(), sum);

    // Large entries push out the oldest until the bytes fit.
    const auto big = [&](const char* q) { return result(q, snapshot, 250, 5000); };
    ASSERT_NE(cache.store(big("big1")), nullptr);
    ASSERT_NE(cache.store(big("big2")), nullptr);
    EXPECT_LE(cache.totalBytes(), SongSearchResultCache::kMaxBytes);
    EXPECT_EQ(cache.find("big1", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);
    EXPECT_NE(cache.find("big2", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);

    // Over the whole budget, or without a snapshot: shown but never kept.
    EXPECT_EQ(cache.store(result("huge", snapshot, 250, 9000)), nullptr);
    EXPECT_EQ(cache.store(result("nosnap", nullptr, 1)), nullptr);
    EXPECT_EQ(cache.find("huge", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);
    EXPECT_NE(cache.find("big2", SongSearchField::FileName, SongSearchMode::AllWords, snapshot), nullptr);
}

}  // namespace
}  // namespace tamo::core
