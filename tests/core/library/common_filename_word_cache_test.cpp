#include "common_filename_word_cache.h"
#include "word_automaton.h"
#include "scoped_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tamo::core {
namespace {

std::vector<Song> songsFromNames(const std::vector<std::string>& paths) {
    std::vector<Song> songs;
    for (const std::string& path : paths) {
        Song song;
        song.id = static_cast<std::int32_t>(songs.size() + 1);
        song.path = path;
        songs.push_back(song);
    }
    return songs;
}

std::vector<std::string> wordsOf(std::string_view path) {
    std::vector<std::string> words;
    EXPECT_TRUE(extractFilenameWords(path, words)) << path;
    return words;
}

std::string numberedWords(int count, const char* prefix) {
    std::string name;
    for (int i = 0; i < count; ++i) name += prefix + std::to_string(i) + " ";
    return name;
}

std::vector<std::string> keptWords(const CommonFilenameWordCache& cache) {
    std::vector<std::string> words;
    for (const auto& entry : cache.entries()) words.push_back(entry.word);
    return words;
}

std::vector<std::uint32_t> postingsOf(const CommonFilenameWordCache& cache, std::string_view word) {
    std::vector<std::uint32_t> postings;
    EXPECT_TRUE(cache.lookup(word, postings)) << word;
    return postings;
}

TEST(FilenameWords, TakeTheNameBeforeItsFirstDotInLowerCase) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(wordsOf("Love.Song.mp3"), Words{"love"});
    EXPECT_EQ(wordsOf("/music/Rock.Hits/ABBA - Waterloo (1974).mp3"), (Words{"1974", "abba", "waterloo"}));
    EXPECT_EQ(wordsOf("C:\\Karaoke\\Queen - We Will Rock You.cdg"), (Words{"queen", "rock", "we", "will", "you"}));
    EXPECT_EQ(wordsOf("disc/SC8123-05 - Beyonc\xC3\xA9 - Halo.mp4"), (Words{"05", "beyonc", "halo", "sc8123"}));
    EXPECT_EQ(wordsOf("A a A_b-B.mp3"), (Words{"a", "b"}));
    EXPECT_EQ(wordsOf(".hidden.mp3"), Words{});
    EXPECT_EQ(wordsOf("folder/"), Words{});

    const std::string longest(48, 'x');
    EXPECT_EQ(wordsOf(longest + " " + std::string(49, 'y') + " ok"), (Words{"ok", longest}));
}

TEST(FilenameWords, AHundredAndTwentyNinthWordRefusesTheName) {
    std::vector<std::string> words;
    EXPECT_TRUE(extractFilenameWords(numberedWords(128, "w"), words));
    EXPECT_EQ(words.size(), 128u);
    // Overlong runs are not words, so they don't count towards the limit.
    EXPECT_TRUE(extractFilenameWords(numberedWords(128, "w") + std::string(60, 'z'), words));
    EXPECT_FALSE(extractFilenameWords(numberedWords(129, "w"), words));
    EXPECT_TRUE(words.empty());
    // Repeats count before they are merged: the name itself is the problem.
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
    EXPECT_EQ(found("aaa"), (std::multiset<std::int32_t>{4, 4, 4}));
    EXPECT_EQ(found("h.is h\xC3\xA9rs 22"), (std::multiset<std::int32_t>{5, 5}));
    EXPECT_EQ(found("shis"), (std::multiset<std::int32_t>{2}));

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
    EXPECT_EQ(clampCommonWordLimit(5), 100);
    EXPECT_EQ(clampCommonWordLimit(-3), 100);
    EXPECT_EQ(clampCommonWordLimit(25000), 25000);
    EXPECT_EQ(clampCommonWordLimit(100000), 50000);

    std::vector<std::string> names;
    for (int i = 0; i < 150; ++i) names.push_back("lib/w" + std::to_string(i) + " - common.mp3");
    const auto songs = songsFromNames(names);
    const auto cache = buildCommonFilenameWordCache(songs, 5, {});
    ASSERT_TRUE(cache);
    EXPECT_EQ(cache->entries().size(), 100u);
    EXPECT_EQ(cache->summary().wordLimit, 100);
    EXPECT_EQ(cache->summary().files, 150u);
    EXPECT_EQ(cache->summary().distinctWords, 151u);

    std::vector<std::uint32_t> postings{99};
    EXPECT_TRUE(cache->lookup("common", postings));
    EXPECT_EQ(postings.size(), 150u);
    EXPECT_FALSE(cache->lookup("common w1", postings));
    EXPECT_FALSE(cache->lookup("Common", postings));
    std::span<const std::uint32_t> view;
    EXPECT_TRUE(cache->lookup("w1", view));
    // "w1" is also inside "w10".."w19" and "w100".."w149".
    EXPECT_EQ(view.size(), 1u + 10u + 50u);
    EXPECT_EQ(cache->hits(), 2u);
    EXPECT_EQ(cache->misses(), 2u);
    EXPECT_NE(describeCommonFilenameWordCache(*cache).find("100 of 151 words"), std::string::npos);
}

TEST(CommonFilenameWordCache, KeepsTheMostFrequentWordsAndBreaksTiesByByteOrder) {
    std::vector<std::string> names;
    // 60 words in three names each, then 60 words in one name each.
    for (int i = 0; i < 60; ++i) {
        for (int copy = 0; copy < 3; ++copy) names.push_back("often" + std::to_string(i) + ".mp3");
    }
    for (int i = 0; i < 60; ++i) names.push_back("b" + std::to_string(i) + ".mp3");
    names.push_back("aa.mp3");
    const auto cache = buildCommonFilenameWordCache(songsFromNames(names), 100, {});
    ASSERT_TRUE(cache);
    const auto words = keptWords(*cache);
    ASSERT_EQ(words.size(), 100u);
    EXPECT_TRUE(std::is_sorted(words.begin(), words.end()));
    const std::set<std::string> kept(words.begin(), words.end());
    for (int i = 0; i < 60; ++i) EXPECT_TRUE(kept.count("often" + std::to_string(i)));
    // Of the 61 rare words the 40 smallest in byte order stay: "aa" first,
    // then "b0", "b1", "b10".."b19", "b2", ... up to "b43".
    EXPECT_TRUE(kept.count("aa"));
    EXPECT_TRUE(kept.count("b43"));
    EXPECT_FALSE(kept.count("b44"));
    EXPECT_FALSE(kept.count("b5"));
}

TEST(CommonFilenameWordCache, StopsAddingWordsAtTheAutomatonBudget) {
    // 11000 distinct 48-byte words: their lengths pass 524288 states after
    // 10922 of them, taken in byte order since every count is one.
    std::vector<std::string> names;
    std::vector<std::string> words;
    for (int i = 0; i < 11000; ++i) {
        std::string word(48, 'q');
        for (int digit = 0, value = i; digit < 4; ++digit, value /= 26) {
            word[47 - static_cast<std::size_t>(digit)] = static_cast<char>('a' + value % 26);
        }
        words.push_back(word);
        names.push_back("deep/" + word + ".mp3");
    }
    const auto cache = buildCommonFilenameWordCache(songsFromNames(names), 50000, {});
    ASSERT_TRUE(cache);
    std::sort(words.begin(), words.end());
    words.resize(10922);
    EXPECT_EQ(keptWords(*cache), words);
}

TEST(CommonFilenameWordCache, GivesNoCacheForAnOverfullNameOrACancelledBuild) {
    std::vector<std::string> names;
    for (int i = 0; i < 5000; ++i) names.push_back("songs/Artist" + std::to_string(i % 70) + " - Love Song.mp3");
    auto songs = songsFromNames(names);
    const test::ScopedEnv workers("TAMO_COMMON_CACHE_WORKERS", "2");
    ASSERT_TRUE(buildCommonFilenameWordCache(songs, 100, {}));

    std::vector<std::uint64_t> reported;
    std::stop_source stop;
    const auto cancelled = buildCommonFilenameWordCache(songs, 100, stop.get_token(),
                                                        [&](std::uint64_t done, std::uint64_t total) {
                                                            EXPECT_EQ(total, songs.size());
                                                            reported.push_back(done);
                                                            stop.request_stop();
                                                        });
    EXPECT_FALSE(cancelled);
    EXPECT_FALSE(reported.empty());
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_FALSE(buildCommonFilenameWordCache(songs, 100, stopped.get_token()));

    reported.clear();
    ASSERT_TRUE(buildCommonFilenameWordCache(songs, 100, {}, [&](std::uint64_t done, std::uint64_t) {
        reported.push_back(done);
    }));
    EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end()));
    EXPECT_EQ(reported.back(), songs.size());

    songs[4321].path = "songs/" + numberedWords(129, "x") + ".mp3";
    EXPECT_FALSE(buildCommonFilenameWordCache(songs, 100, {}));
}

TEST(CommonFilenameWordCache, PostsSubstringsInsideLongRunsButNotAfterTheFirstDot) {
    const std::vector<std::string> names{
        "a/Love Me Do.mp3",                                  // 0
        "a/Glove Box.mp3",                                   // 1
        "a/" + std::string(45, 'z') + "love Box.mp3",        // 2: a 49-letter run
        "a/Box.love.mp3",                                    // 3: after the first dot
        "a/love\\LOVE love.mp3",                             // 4: once, folded
        "love/Box.mp3",                                      // 5: folder name
    };
    const auto cache = buildCommonFilenameWordCache(songsFromNames(names), 100, {});
    ASSERT_TRUE(cache);
    EXPECT_EQ(keptWords(*cache), (std::vector<std::string>{"box", "do", "glove", "love", "me"}));
    EXPECT_EQ(postingsOf(*cache, "love"), (std::vector<std::uint32_t>{0, 1, 2, 4}));
    EXPECT_EQ(postingsOf(*cache, "box"), (std::vector<std::uint32_t>{1, 2, 3, 5}));
    EXPECT_EQ(postingsOf(*cache, "glove"), (std::vector<std::uint32_t>{1}));
}

// Names from a small vocabulary with capitals, digits, dots, both
// separators, non-ASCII bytes and overlong runs, so that words repeat,
// overlap and hide inside each other.
std::vector<std::string> randomNames(std::size_t count, std::uint32_t seed) {
    static const char* const vocabulary[] = {
        "love", "glove", "Lover", "me",    "Do",   "a",      "the", "THE",   "queen", "que", "en", "rock",
        "Rocky", "you", "youth", "2",     "22",   "1974",   "7",   "band",  "abba",  "ab",  "ba", "Bea",
        "caf\xC3\xA9", "\xC3\xA9t\xC3\xA9", "x9", "9x", "night", "in", "nights", "on", "one", "song"};
    static const char* const glue[] = {" ", " - ", "_", "-", "", ".", "(", ") ", "/", "\\", "'"};
    std::mt19937 random(seed);
    const auto pick = [&](std::size_t size) { return static_cast<std::size_t>(random() % size); };
    std::vector<std::string> names;
    names.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::string name = "root/Disc " + std::to_string(pick(40)) + "/";
        const std::size_t parts = 1 + pick(7);
        for (std::size_t part = 0; part < parts; ++part) {
            if (pick(60) == 0) {
                name += std::string(46 + pick(6), 'e');
            } else {
                name += vocabulary[pick(std::size(vocabulary))];
            }
            name += glue[pick(std::size(glue))];
        }
        name += pick(2) == 0 ? ".mp3" : ".mkv";
        names.push_back(name);
    }
    return names;
}

TEST(CommonFilenameWordCache, MatchesAPlainScanOfRandomNamesWithAnyWorkerCount) {
    const auto names = randomNames(6000, 20261122);
    const auto songs = songsFromNames(names);

    // The selection, counted naively.
    std::map<std::string, std::uint32_t> counts;
    for (const std::string& name : names) {
        for (const std::string& word : wordsOf(name)) ++counts[word];
    }
    std::vector<std::pair<std::string, std::uint32_t>> ranked(counts.begin(), counts.end());
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    ASSERT_GT(ranked.size(), 100u);
    std::vector<std::string> expectedWords;
    for (std::size_t i = 0; i < 100; ++i) expectedWords.push_back(ranked[i].first);
    std::sort(expectedWords.begin(), expectedWords.end());

    std::vector<std::string> cutNames;
    for (const std::string& name : names) {
        std::string cut(filenameWordText(name));
        for (char& c : cut) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        cutNames.push_back(cut);
    }

    for (const char* workers : {"1", "3", "8"}) {
        const test::ScopedEnv env("TAMO_COMMON_CACHE_WORKERS", workers);
        const auto cache = buildCommonFilenameWordCache(songs, 100, {});
        ASSERT_TRUE(cache) << workers;
        EXPECT_EQ(cache->summary().workers, static_cast<unsigned>(std::atoi(workers)));
        EXPECT_EQ(keptWords(*cache), expectedWords) << workers;
        std::uint64_t total = 0;
        for (const auto& entry : cache->entries()) {
            std::vector<std::uint32_t> expected;
            for (std::uint32_t position = 0; position < cutNames.size(); ++position) {
                if (cutNames[position].find(entry.word) != std::string::npos) expected.push_back(position);
            }
            ASSERT_EQ(entry.postings, expected) << entry.word << " with " << workers << " workers";
            total += expected.size();
        }
        EXPECT_EQ(cache->summary().postings, total);
    }
}

TEST(CommonFilenameWordCache, ChoosesWorkersByLibrarySize) {
    const test::ScopedEnv env("TAMO_COMMON_CACHE_WORKERS", "6");
    EXPECT_EQ(commonWordWorkerCount(1023), 1u);
    EXPECT_EQ(commonWordWorkerCount(1024), 2u);
    EXPECT_EQ(commonWordWorkerCount(2047), 3u);
    EXPECT_EQ(commonWordWorkerCount(100000), 6u);
}

}  // namespace
}  // namespace tamo::core
