#include "common_filename_word_cache.h"
#include "library_test_support.h"
#include "word_automaton.h"

#include <map>
#include <random>
#include <set>
#include <stdexcept>

namespace tamo::core {
namespace {
using test::songsAt;
using Words = std::vector<std::string>;

Words wordsOf(std::string_view path) {
    Words words;
    EXPECT_TRUE(extractFilenameWords(path, words)) << path;
    return words;
}

std::string numberedWords(int count, const char* prefix) {
    std::string name;
    for (int i = 0; i < count; ++i) name += prefix + std::to_string(i) + " ";
    return name;
}

Words keptWords(const CommonFilenameWordCache& cache) {
    Words words;
    for (const auto& entry : cache.entries()) words.push_back(entry.word);
    return words;
}

std::vector<std::uint32_t> postingsOf(const CommonFilenameWordCache& cache, std::string_view word) {
    std::vector<std::uint32_t> postings;
    EXPECT_TRUE(cache.lookup(word, postings)) << word;
    return postings;
}

TEST(FilenameWords, TakeTheNameBeforeItsFirstDotInLowerCaseUpTo128Words) {
    EXPECT_EQ(wordsOf("Love.Song.mp3"), Words{"love"});
    EXPECT_EQ(wordsOf("/music/Rock.Hits/ABBA - Waterloo (1974).mp3"), (Words{"1974", "abba", "waterloo"}));
    EXPECT_EQ(wordsOf("C:\\Karaoke\\Queen - We Will Rock You.cdg"), (Words{"queen", "rock", "we", "will", "you"}));
    EXPECT_EQ(wordsOf("disc/SC8123-05 - Beyonc\xC3\xA9 - Halo.mp4"), (Words{"05", "beyonc", "halo", "sc8123"}));
    EXPECT_EQ(wordsOf("A a A_b-B.mp3"), (Words{"a", "b"}));
    EXPECT_EQ(wordsOf(".hidden.mp3"), Words{});
    EXPECT_EQ(wordsOf("folder/"), Words{});
    const std::string longest(48, 'x');
    EXPECT_EQ(wordsOf(longest + " " + std::string(49, 'y') + " ok"), (Words{"ok", longest}));

    // Overlong runs don't count towards the limit; repeats count before
    // they are merged, since the name itself is the problem.
    Words words;
    EXPECT_EQ(wordsOf(numberedWords(128, "w") + std::string(60, 'z')).size(), 128u);
    EXPECT_FALSE(extractFilenameWords(numberedWords(129, "w"), words));
    EXPECT_TRUE(words.empty());
    std::string repeated;
    for (int i = 0; i < 129; ++i) repeated += "la ";
    EXPECT_FALSE(extractFilenameWords(repeated, words));
}

TEST(WordAutomaton, ReportsEveryOccurrenceThroughDictionaryLinks) {
    const WordAutomaton automaton({"he", "hers", "his", "she", "a", "2"});
    const auto found = [&](std::string_view text) {
        std::multiset<std::int32_t> reported;
        automaton.scan(text, [&](std::int32_t word) { reported.insert(word); });
        return reported;
    };
    EXPECT_EQ(found("USHERS"), (std::multiset<std::int32_t>{0, 1, 3}));
    EXPECT_EQ(found("h.is h\xC3\xA9rs 22"), (std::multiset<std::int32_t>{5, 5}));
    for (const char* bad : {"", "rock-n-roll", "caf\xC3\xA9"}) {
        try {
            const WordAutomaton refused({"ok", bad});
            ADD_FAILURE() << bad;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "Common-cache word is not ASCII alphanumeric");
        }
    }
}

TEST(CommonFilenameWordCache, ClampsTheWordLimitAndCountsLookups) {
    const std::pair<std::int64_t, std::int64_t> limits[] = {{5, 100}, {-3, 100}, {25000, 25000}, {100000, 50000}};
    for (const auto& [setting, used] : limits) EXPECT_EQ(clampCommonWordLimit(setting), used) << setting;

    std::vector<std::string> names;
    for (int i = 0; i < 150; ++i) names.push_back("lib/w" + std::to_string(i) + " - common.mp3");
    const auto cache = buildCommonFilenameWordCache(songsAt(names), 5, {});
    ASSERT_TRUE(cache);
    EXPECT_EQ(cache->entries().size(), 100u);
    std::vector<std::uint32_t> postings{99};
    EXPECT_TRUE(cache->lookup("common", postings));
    EXPECT_EQ(postings.size(), 150u);
    EXPECT_FALSE(cache->lookup("common w1", postings));
    EXPECT_FALSE(cache->lookup("Common", postings));
    std::span<const std::uint32_t> view;
    EXPECT_TRUE(cache->lookup("w1", view));
    EXPECT_EQ(view.size(), 1u + 10u + 50u);  // also inside "w10".."w19" and "w100".."w149"
    EXPECT_EQ(cache->hits(), 2u);
    EXPECT_EQ(cache->misses(), 2u);
}

TEST(CommonFilenameWordCache, StopsAddingWordsAtTheAutomatonBudget) {
    // 11000 distinct 48-byte words: their lengths pass 524288 states after
    // 10922 of them, taken in byte order since every count is one.
    std::vector<std::string> names;
    Words words;
    for (int i = 0; i < 11000; ++i) {
        std::string word(48, 'q');
        for (int digit = 0, value = i; digit < 4; ++digit, value /= 26) word[47 - digit] = static_cast<char>('a' + value % 26);
        words.push_back(word);
        names.push_back("deep/" + word + ".mp3");
    }
    const auto cache = buildCommonFilenameWordCache(songsAt(names), 50000, {});
    ASSERT_TRUE(cache);
    std::sort(words.begin(), words.end());
    words.resize(10922);
    EXPECT_EQ(keptWords(*cache), words);
}

TEST(CommonFilenameWordCache, GivesNoCacheForAnOverfullNameOrACancelledBuild) {
    std::vector<std::string> names;
    for (int i = 0; i < 5000; ++i) names.push_back("songs/Artist" + std::to_string(i % 70) + " - Love Song.mp3");
    auto songs = songsAt(names);
    const test::ScopedEnv workers("TAMO_COMMON_CACHE_WORKERS", "2");
    ASSERT_TRUE(buildCommonFilenameWordCache(songs, 100, {}));

    std::stop_source stop;
    const auto stopMidway = [&](std::uint64_t, std::uint64_t) { stop.request_stop(); };
    EXPECT_FALSE(buildCommonFilenameWordCache(songs, 100, stop.get_token(), stopMidway));
    EXPECT_FALSE(buildCommonFilenameWordCache(songs, 100, stop.get_token()));

    songs[4321].path = "songs/" + numberedWords(129, "x") + ".mp3";
    EXPECT_FALSE(buildCommonFilenameWordCache(songs, 100, {}));
}

TEST(CommonFilenameWordCache, PostsSubstringsInsideLongRunsButNotAfterTheFirstDot) {
    const std::vector<std::string> names{
        "a/Love Me Do.mp3",                            // 0
        "a/Glove Box.mp3",                             // 1
        "a/" + std::string(45, 'z') + "love Box.mp3",  // 2: a 49-letter run
        "a/Box.love.mp3",                              // 3: after the first dot
        "a/love\\LOVE love.mp3",                       // 4: once, folded
        "love/Box.mp3",                                // 5: folder name
    };
    const auto cache = buildCommonFilenameWordCache(songsAt(names), 100, {});
    ASSERT_TRUE(cache);
    EXPECT_EQ(keptWords(*cache), (Words{"box", "do", "glove", "love", "me"}));
    EXPECT_EQ(postingsOf(*cache, "love"), (std::vector<std::uint32_t>{0, 1, 2, 4}));
    EXPECT_EQ(postingsOf(*cache, "box"), (std::vector<std::uint32_t>{1, 2, 3, 5}));
    EXPECT_EQ(postingsOf(*cache, "glove"), (std::vector<std::uint32_t>{1}));
}

TEST(CommonFilenameWordCache, MatchesANaiveCountAndScanOfRandomNamesWithAnyWorkerCount) {
    // A small vocabulary with capitals, digits, dots, both separators,
    // non-ASCII bytes and overlong runs, glued so that words repeat, overlap
    // and hide inside each other.
    static const char* const vocabulary[] = {
        "love", "glove", "Lover", "me", "Do", "a", "the", "THE", "queen", "que", "en", "rock", "Rocky", "you",
        "youth", "2", "22", "1974", "7", "band", "abba", "ab", "ba", "Bea", "caf\xC3\xA9", "\xC3\xA9t\xC3\xA9",
        "x9", "9x", "night", "in", "nights", "on", "one", "song", "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"};
    static const char* const glue[] = {" ", " - ", "_", "-", "", ".", "(", ") ", "/", "\\", "'"};
    std::mt19937 random(20261122);
    const auto pick = [&](std::size_t size) { return static_cast<std::size_t>(random() % size); };
    std::vector<std::string> names;
    for (int i = 0; i < 6000; ++i) {
        std::string name = "root/Disc " + std::to_string(pick(40)) + "/";
        for (std::size_t part = 1 + pick(7); part > 0; --part) {
            const std::string word = vocabulary[pick(std::size(vocabulary))];
            name += word.substr(pick(4) % word.size()) + glue[pick(std::size(glue))];
        }
        names.push_back(name + (pick(2) == 0 ? ".mp3" : ".mkv"));
    }

    // The selection counted naively: most frequent first, ties in byte order.
    std::map<std::string, std::uint32_t> counts;
    Words cutNames;
    for (const std::string& name : names) {
        for (const std::string& word : wordsOf(name)) ++counts[word];
        cutNames.emplace_back(filenameWordText(name));
        for (char& c : cutNames.back()) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    std::vector<std::pair<std::string, std::uint32_t>> ranked(counts.begin(), counts.end());
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    ASSERT_GT(ranked.size(), 100u);
    ASSERT_EQ(ranked[99].second, ranked[100].second) << "the cut should fall inside a tie";
    Words expectedWords;
    for (std::size_t i = 0; i < 100; ++i) expectedWords.push_back(ranked[i].first);
    std::sort(expectedWords.begin(), expectedWords.end());

    for (const char* workers : {"1", "3", "8"}) {
        const test::ScopedEnv env("TAMO_COMMON_CACHE_WORKERS", workers);
        const auto cache = buildCommonFilenameWordCache(songsAt(names), 100, {});
        ASSERT_TRUE(cache) << workers;
        EXPECT_EQ(cache->summary().workers, static_cast<unsigned>(std::atoi(workers)));
        EXPECT_EQ(keptWords(*cache), expectedWords) << workers;
        for (const auto& entry : cache->entries()) {
            std::vector<std::uint32_t> expected;
            for (std::uint32_t position = 0; position < cutNames.size(); ++position) {
                if (cutNames[position].find(entry.word) != std::string::npos) expected.push_back(position);
            }
            ASSERT_EQ(entry.postings, expected) << entry.word << " with " << workers << " workers";
        }
    }
}

}  // namespace
}  // namespace tamo::core
