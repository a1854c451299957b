#include "library_test_support.h"
#include "song_search.h"
#include "song_search_cache.h"

namespace tamo::core {
namespace {
using F = SongSearchField;
using M = SongSearchMode;
using Ids = std::vector<std::int32_t>;

Ids ids(const std::vector<Song>& songs) {
    Ids out;
    for (const auto& s : songs) out.push_back(s.id);
    return out;
}

std::vector<Song> library() {
    const auto song = [](std::int32_t id, const char* path, const char* artist, const char* title) {
        return Song{id, path, title, artist, "mp3", ""};
    };
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
}

TEST(SongSearch, MatchesWordsInTheChosenField) {
    const auto songs = library();
    struct Case {
        const char* query;
        F field;
        M mode;
        Ids expected;
    };
    // Queries come normalised. File name only: folder names don't count,
    // the extension does. Non-ASCII letters match byte for byte only.
    const Case cases[] = {
        {"tribute", F::FileName, M::AllWords, {}},
        {"mp3", F::FileName, M::AllWords, {1, 3, 4, 5, 6}},
        {"old", F::FileName, M::AllWords, {}},  // before the backslash
        {"abc xyz", F::FileName, M::AllWords, {5}},
        {"xyz abc", F::FileName, M::AllWords, {5}},
        {"abc xyz", F::FileName, M::AnyWord, {5, 6}},
        {"Öl", F::FileName, M::AllWords, {3}},
        {"öl", F::FileName, M::AllWords, {4}},
        {"Über", F::Title, M::AllWords, {3}},
        {"über", F::Title, M::AllWords, {4}},
        {"beatles", F::Artist, M::AllWords, {1, 2}},
        {"beatles", F::Title, M::AllWords, {}},
        {"yesterday let", F::Title, M::AnyWord, {1, 2}},
        {"", F::Title, M::AnyWord, {1, 2, 3, 4, 5, 6, 7}},
        {"   ", F::FileName, M::AllWords, {}},
        {"   ", F::FileName, M::AnyWord, {}},
    };
    for (const Case& c : cases) {
        Ids found;
        for (const auto& s : songs) {
            if (songMatches(s, c.query, c.field, c.mode)) found.push_back(s.id);
        }
        EXPECT_EQ(found, c.expected) << '"' << c.query << "\" field " << static_cast<int>(c.field);
    }

    // Choice-box indices: anything but 1 and 2 is the file name.
    EXPECT_EQ(songSearchFieldFromIndex(1), F::Artist);
    EXPECT_EQ(songSearchFieldFromIndex(2), F::Title);
    EXPECT_EQ(songSearchFieldFromIndex(-1), F::FileName);
    EXPECT_EQ(songSearchModeFromIndex(1), M::AnyWord);
    EXPECT_EQ(songSearchModeFromIndex(3), M::AllWords);
}

TEST(SongSearch, FiltersInLibraryOrderUpToTheLimit) {
    const auto songs = library();
    EXPECT_EQ(ids(searchSongs(songs, "  BEATLES ", 0)), (Ids{1, 2}));
    EXPECT_EQ(ids(searchSongs(songs, "mp3", 1)), Ids{1});
    EXPECT_EQ(ids(searchSongs(songs, "mp3", 2)), (Ids{1, 3}));
    EXPECT_EQ(ids(searchSongs(songs, "", 3)), (Ids{1, 2, 3}));
    EXPECT_EQ(searchSongs(songs, "", 0).size(), songs.size());
    EXPECT_TRUE(searchSongs({}, "x", 5).empty());

    const auto rows = searchSongRows(songs, "abc", F::FileName, M::AllWords, 250);
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
    const SongSearchRow& row = costed.rows[0];
    EXPECT_EQ(songSearchResultCost(costed), 120 + costed.query.capacity() + 32 + 104 * costed.rows.capacity() + 32 +
                                                row.title.capacity() + row.artist.capacity() + row.fileName.capacity());

    const auto snapshot = makeSongSearchSnapshot(library());
    SongSearchResultCache cache;
    const auto cached = [&](const char* query, F field = F::FileName, M mode = M::AllWords,
                            const SongSearchSnapshot& of = nullptr) {
        return cache.find(query, field, mode, of ? of : snapshot) != nullptr;
    };
    for (int i = 0; i < 13; ++i) ASSERT_NE(cache.store(result("q" + std::to_string(i), snapshot, 2)), nullptr);
    EXPECT_EQ(cache.size(), 12u);
    EXPECT_FALSE(cached("q0"));

    // A hit becomes the most recent entry and so survives the next eviction.
    ASSERT_TRUE(cached("q1"));
    cache.store(result("q13", snapshot, 2));
    EXPECT_TRUE(cached("q1"));
    EXPECT_FALSE(cached("q2"));

    // Other field, mode or snapshot: a different key.
    EXPECT_FALSE(cached("q1", F::Artist));
    EXPECT_FALSE(cached("q1", F::FileName, M::AnyWord));
    EXPECT_FALSE(cached("q1", F::FileName, M::AllWords, makeSongSearchSnapshot(library())));

    // The same key replaces the older entry rather than adding one.
    const std::size_t before = cache.size();
    cache.store(result("q1", snapshot, 5));
    EXPECT_EQ(cache.size(), before);
    EXPECT_EQ(cache.find("q1", F::FileName, M::AllWords, snapshot)->rows.size(), 5u);

    // Large entries push out the oldest until the bytes fit.
    ASSERT_NE(cache.store(result("big1", snapshot, 250, 5000)), nullptr);
    ASSERT_NE(cache.store(result("big2", snapshot, 250, 5000)), nullptr);
    std::uint64_t sum = 0;
    for (const auto& entry : cache.entries()) sum += entry.bytes;
    EXPECT_EQ(cache.totalBytes(), sum);
    EXPECT_LE(sum, SongSearchResultCache::kMaxBytes);
    EXPECT_FALSE(cached("big1"));
    EXPECT_TRUE(cached("big2"));

    // Over the whole budget, or without a snapshot: shown but never kept.
    EXPECT_EQ(cache.store(result("huge", snapshot, 250, 9000)), nullptr);
    EXPECT_EQ(cache.store(result("nosnap", nullptr, 1)), nullptr);
    EXPECT_FALSE(cached("huge"));
    EXPECT_TRUE(cached("big2"));
}

}  // namespace
}  // namespace tamo::core
