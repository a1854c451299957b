#include "common_filename_word_cache.h"
#include "library_test_support.h"
#include "media_folder_scan.h"
#include "media_index_scan.h"
#include "media_preflight.h"
#include "worker_count.h"

#include <thread>
#include <unistd.h>
#include <utility>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::canonicalText;
using test::failsWith;
using test::ScopedEnv;
using test::songPaths;

TEST(IndexScan, PairsEachMediaFileWithItsBestGraphics) {
    test::TempDir dir;
    for (const char* name : {"a.mp3", "a.CDG", "a.cdg", "b.mp3", "b.cDG", "b.Cdg", "c - lonely.mp3",
                             "Queen - Video.MP4", "notes.txt", "sub/SC-1 - Abba - Waterloo.mp3",
                             "sub/SC-1 - Abba - Waterloo.cdg"}) {
        dir.write(name);
    }
    const std::string root = canonicalText(dir.path());
    const std::string abba = root + "/sub/SC-1 - Abba - Waterloo";
    const std::vector<Song> expected{
        {1, root + "/Queen - Video.MP4", "Video", "Queen", "mp4", ""},
        {2, root + "/a.mp3", "a", "", "mp3", root + "/a.cdg"},
        {3, root + "/b.mp3", "b", "", "mp3", root + "/b.Cdg"},  // of other spellings the first in path order
        {4, root + "/c - lonely.mp3", "lonely", "c", "mp3", ""},
        {5, abba + ".mp3", "Waterloo", "Abba", "mp3", abba + ".cdg"},
    };
    const MediaIndexSnapshot verified = buildMediaIndex(root, {}, false);
    EXPECT_EQ(verified.songs, expected);
    EXPECT_EQ(scanMediaFolder(root), expected);
    ASSERT_EQ(verified.stamps.size(), 2u);
    EXPECT_EQ(verified.stamps[0].nameCount, 9u);  // 8 files that count, and "sub/"

    // Trusted pairs touch no file: every song names its ".cdg", there or not.
    std::vector<Song> assumed = expected;
    for (Song& song : assumed) song.cdgPath = song.path.substr(0, song.path.rfind('.')) + ".cdg";
    const MediaIndexSnapshot trusted = buildMediaIndex(root, {}, true);
    EXPECT_EQ(trusted.songs, assumed);
    EXPECT_EQ(trusted.stamps, verified.stamps);
}

TEST(IndexScan, SkipsLinksAndMountPointsWithoutTrace) {
    test::TempDir dir;
    for (const char* name : {"music/a/x.mp3", "outside/y.mp3", "outside/y.cdg", "outside/deeper/z.mp3"}) dir.write(name);
    const fs::path root = dir / "music";
    const auto before = fingerprintMediaFolder(root, {});
    const auto expectOnlyOwnSong = [&] {
        const std::vector<std::string> own{canonicalText(root / "a" / "x.mp3")};
        EXPECT_TRUE(directoryStampsMatch(root, before, {}));
        EXPECT_EQ(songPaths(scanStable(root, {}, false).songs), own);
        EXPECT_EQ(songPaths(scanMediaFolder(root)), own);
    };

    fs::create_directory_symlink(dir / "outside", root / "linked");
    fs::create_symlink(dir / "outside" / "y.mp3", root / "a" / "y.mp3");
    fs::create_symlink(dir / "outside" / "y.cdg", root / "y.cdg");
    fs::create_directory_symlink(root, root / "a" / "loop");
    fs::create_directory_symlink("..", root / "up");
    fs::create_directory_symlink(root / "loop-b", root / "loop-a");
    fs::create_directory_symlink(root / "loop-a", root / "loop-b");
    expectOnlyOwnSong();

    // A bind-mounted folder, and a single file mounted over a media name.
    fs::create_directory(root / "mounted");
    test::ScopedMount folder((dir / "outside").c_str(), root / "mounted", nullptr, MS_BIND, nullptr);
    if (!folder.mounted()) GTEST_SKIP() << "bind mounts need privileges this run does not have";
    dir.write("music/a/file.mp3");
    test::ScopedMount file((dir / "outside" / "y.mp3").c_str(), root / "a" / "file.mp3", nullptr, MS_BIND, nullptr);
    ASSERT_TRUE(file.mounted());
    expectOnlyOwnSong();
}

TEST(IndexScan, AllowsSixtyFourLevelsAndRefusesTheNextWithoutRetrying) {
    test::TempDir dir;
    fs::path deepest = dir.path();
    for (int level = 0; level < 64; ++level) deepest /= "d";
    fs::create_directories(deepest);
    dir.write((fs::relative(deepest, dir.path()) / "song.mp3").string());
    EXPECT_EQ(scanStable(dir.path(), {}, true).songs.size(), 1u);
    EXPECT_EQ(scanMediaFolder(dir.path()).size(), 1u);

    fs::create_directory(deepest / "d");
    const char* text = "Media folder nesting exceeded the safe depth limit";
    EXPECT_TRUE(failsWith([&] { scanMediaFolder(dir.path()); }, text, std::errc::value_too_large));
    // One pass of 65 folders: a limit failure is never retried.
    test::ProgressLog log;
    EXPECT_TRUE(failsWith([&] { scanStable(dir.path(), log.callback(), true); }, text, std::errc::value_too_large));
    EXPECT_EQ(log.calls.size(), 65u);
}

TEST(IndexScan, FingerprintsFollowNamesThatMatterOnly) {
    test::TempDir dir;
    dir.write("Artist/a.mp3", "one");
    dir.write("Artist/a.cdg");
    fs::create_directory(dir / "Other");
    const fs::path root = dir.path();
    const auto base = fingerprintMediaFolder(root, {});
    ASSERT_EQ(base.size(), 3u);

    // Other files, a file replaced in place and a folder's time are not seen.
    dir.write("Artist/notes.txt");
    dir.write("Artist/cover.jpg");
    dir.write("Artist/a.mp3", "replaced in place");
    fs::last_write_time(root / "Other", fs::file_time_type::clock::now() - std::chrono::hours(5));
    EXPECT_TRUE(directoryStampsMatch(root, base, {}));
    for (const char* added : {"Artist/b.mp3", "Artist/b.CDG", "Other/c.webm"}) {
        const auto file = dir.write(added);
        EXPECT_FALSE(directoryStampsMatch(root, base, {})) << added;
        fs::remove(file);
    }
    EXPECT_TRUE(directoryStampsMatch(root, base, {}));

    // A renamed folder changes its parent's hash, since the name ends in "/".
    fs::rename(root / "Other", root / "Others");
    EXPECT_FALSE(directoryStampsMatch(root, base, {}));
    EXPECT_NE(fingerprintMediaFolder(root, {})[0].nameHash, base[0].nameHash);
    EXPECT_FALSE(directoryStampsMatch(root / "Artist" / "a.mp3", base, {}));

    // The terminator after each name keeps these apart; no names leave the offset.
    test::TempDir left;
    test::TempDir right;
    left.write("ab.mp3c.mp3");
    right.write("ab.mp3");
    right.write("c.mp3");
    EXPECT_NE(fingerprintMediaFolder(left.path(), {})[0].nameHash, fingerprintMediaFolder(right.path(), {})[0].nameHash);
    fs::remove_all(dir / "Artist");
    fs::remove_all(dir / "Others");
    EXPECT_EQ(fingerprintMediaFolder(root, {})[0].nameHash, 0xcbf29ce484222325ULL);
}

TEST(IndexScan, AFolderThatKeepsChangingFailsAfterThreeAttempts) {
    test::TempDir dir;
    dir.write("a.mp3");
    int added = 0;
    const ScanProgress changing = [&](std::uint64_t, std::uint64_t) {
        dir.write("new-" + std::to_string(++added) + ".mp3");
    };
    EXPECT_TRUE(failsWith([&] { scanStable(dir.path(), changing, true); }, "Media folder did not stabilize during scan",
                          std::errc::state_not_recoverable));

    // A folder that changes during the first attempt only is read again.
    bool once = true;
    const ScanProgress settling = [&](std::uint64_t, std::uint64_t) {
        if (std::exchange(once, false)) dir.write("late.mp3");
    };
    const auto snapshot = scanStable(dir.path(), settling, true);
    EXPECT_EQ(snapshot.songs.size(), static_cast<std::size_t>(added) + 2);
    EXPECT_TRUE(directoryStampsMatch(dir.path(), snapshot.stamps, {}));
}

TEST(IndexScan, RefusesAFolderThatLeavesTheTree) {
    test::TempDir dir;
    dir.write("music/a/b/x.mp3");
    dir.write("outside/b/y.mp3");
    const fs::path root = dir / "music";
    const char* unsafe = "Media folder changed or became unsafe during scan";

    // "a" turns into a link after the root (1) or "a" itself (2) was listed.
    int reads = 0;
    const auto swapAfter = [&](int read) {
        return [&, read](std::uint64_t, std::uint64_t total) {
            if (total == 0 && ++reads == read) {
                fs::rename(root / "a", dir / "kept-a");
                fs::create_directory_symlink(dir / "outside", root / "a");
            }
        };
    };
    EXPECT_TRUE(failsWith([&] { buildMediaIndex(root, swapAfter(1), false); }, unsafe, std::errc::io_error));
    fs::remove(root / "a");
    fs::rename(dir / "kept-a", root / "a");
    reads = 0;
    EXPECT_TRUE(failsWith([&] { buildMediaIndex(root, swapAfter(2), false); }, "Media subfolder escaped its root",
                          std::errc::invalid_argument));

    // The root itself meets the same guard.
    fs::create_directory_symlink(root, dir / "shortcut");
    EXPECT_TRUE(failsWith([&] { buildMediaIndex(dir / "absent", {}, true); }, unsafe,
                          std::errc::no_such_file_or_directory));
    EXPECT_TRUE(failsWith([&] { scanStable(dir / "shortcut", {}, true); }, unsafe, std::errc::io_error));
    EXPECT_TRUE(failsWith([&] { buildMediaIndex(dir / "outside" / "b" / "y.mp3", {}, true); }, unsafe,
                          std::errc::io_error));
}

TEST(WorkerCount, ReadsTheEnvironmentStrictlyAndFollowsTheAmountOfWork) {
    // Only whole decimal numbers from 1 to 4294967295 count; then 1..8.
    const unsigned hardware = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
    const char* name = "TAMO_MEDIA_INDEX_WORKERS";
    for (const char* ignored : {"", "0", "4x", " 4", "-1", "4294967296", "99999999999999999999",
                                static_cast<const char*>(nullptr)}) {
        const ScopedEnv env(name, ignored);
        EXPECT_EQ(chooseWorkerCount(name, 1000), hardware) << (ignored != nullptr ? ignored : "unset");
    }
    EXPECT_EQ(parseWorkerCount("4294967295"), 4294967295u);
    const ScopedEnv many(name, "32");
    EXPECT_EQ(chooseWorkerCount(name, 1000), 8u);
    EXPECT_EQ(chooseWorkerCount(name, 3), 3u);
    EXPECT_EQ(chooseWorkerCount(name, 0), 1u);

    // Preflight and the word index ignore their setting below 1024 songs,
    // then give each worker at least 512 songs.
    const ScopedEnv preflight("TAMO_PREFLIGHT_WORKERS", "6");
    const ScopedEnv words("TAMO_COMMON_CACHE_WORKERS", "6");
    const std::pair<std::uint64_t, unsigned> cases[] = {{1023, 1}, {1024, 2}, {2047, 3}, {100000, 6}};
    for (const auto& [songs, workers] : cases) {
        EXPECT_EQ(preflightWorkerCount(songs), workers) << songs;
        EXPECT_EQ(commonWordWorkerCount(songs), workers) << songs;
    }
}

TEST(IndexScan, MakesSongsOnWorkersOnlyForLargeFoldersAndPassesOnTheirFailure) {
    test::TempDir dir;
    for (int i = 0; i < 1024; ++i) {
        const std::string stem = "Artist " + std::to_string(i % 7) + "/Artist - Song " + std::to_string(1000 + i);
        dir.write(stem + ".mp3");
        if (i % 3 == 0) dir.write(stem + ".cdg");
    }
    const ScopedEnv env("TAMO_MEDIA_INDEX_WORKERS", "8");

    // Workers report nothing; the calling thread reports once at the end.
    const auto caller = std::this_thread::get_id();
    test::ProgressLog log;
    const MediaIndexSnapshot parallel = buildMediaIndex(dir.path(), [&](std::uint64_t done, std::uint64_t total) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        log.calls.emplace_back(done, total);
    }, false);
    EXPECT_TRUE(log.saw(0, 1024));
    EXPECT_TRUE(log.saw(1024, 1024));
    EXPECT_FALSE(log.saw(256, 1024));
    EXPECT_EQ(parallel.songs, scanMediaFolder(dir.path()));  // each song in its place, a third of them paired

    // A file that vanishes between listing and song making fails the scan.
    const std::string vanishing = parallel.songs[700].path;
    const auto failure = test::scanFailure([&] {
        buildMediaIndex(dir.path(), [&](std::uint64_t done, std::uint64_t total) {
            if (done == 0 && total == 1024) fs::remove(vanishing);
        }, false);
    });
    EXPECT_EQ(failure.text, "Media file changed or became unreadable during scan");
    EXPECT_EQ(failure.code, std::make_error_code(std::errc::no_such_file_or_directory));
    EXPECT_EQ(failure.path, vanishing);

    // 511 candidates stay on the calling thread whatever the setting says.
    for (std::size_t i = 511; i < 1024; ++i) fs::remove(parallel.songs[i].path);
    test::ProgressLog smallLog;
    EXPECT_EQ(buildMediaIndex(dir.path(), smallLog.callback(), true).songs.size(), 511u);
    EXPECT_TRUE(smallLog.saw(256, 511));
    EXPECT_TRUE(smallLog.saw(511, 511));
}

TEST(IndexScan, AnUnreadableFolderGivesAQuotedFailure) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions don't stop root from reading a folder";
    test::TempDir dir;
    const fs::path root = dir / "music";
    dir.write("music/a.mp3");
    fs::create_directory(root / "closed");
    fs::permissions(root / "closed", fs::perms::none);
    EXPECT_TRUE(failsWith([&] { scanStable(root, {}, false); }, "Could not open media folder",
                          std::errc::permission_denied));
    EXPECT_TRUE(failsWith([&] { scanMediaFolder(root); }, "Media folder changed or became unreadable during scan",
                          std::errc::permission_denied));
}

TEST(PlainScan, ResolvesItsRootAndNumbersSongsInPathOrder) {
    test::TempDir dir;
    dir.write("music/Artist - Song.mp3");
    dir.write("music/Artist - Song.cDg");
    fs::create_directory_symlink(dir / "music", dir / "shortcut");
    const std::string music = canonicalText(dir / "music");
    EXPECT_EQ(scanMediaFolder(dir / "shortcut"),
              (std::vector<Song>{{1, music + "/Artist - Song.mp3", "Song", "Artist", "mp3", music + "/Artist - Song.cDg"}}));
    EXPECT_TRUE(failsWith([&] { scanMediaFolder(dir / "absent"); }, "Could not resolve media folder",
                          std::errc::no_such_file_or_directory));
    EXPECT_TRUE(failsWith([&] { scanMediaFolder(dir / "music" / "Artist - Song.mp3"); },
                          "Media folder is not a directory", std::errc::io_error));
    EXPECT_TRUE(scanMediaFolder(dir.write("empty/readme.txt").parent_path()).empty());

    // Path order compares element by element: "a" ends before "a b"; the
    // index scan orders by bytes, where a blank comes before "/".
    for (const char* name : {"tree/a b/x.mp4", "tree/a-b/z.mp4", "tree/a/y.mp4"}) dir.write(name);
    const std::string tree = canonicalText(dir / "tree");
    EXPECT_EQ(songPaths(scanMediaFolder(tree)),
              (std::vector<std::string>{tree + "/a/y.mp4", tree + "/a b/x.mp4", tree + "/a-b/z.mp4"}));
    EXPECT_EQ(songPaths(buildMediaIndex(tree, {}, true).songs),
              (std::vector<std::string>{tree + "/a b/x.mp4", tree + "/a-b/z.mp4", tree + "/a/y.mp4"}));
}

}  // namespace
}  // namespace tamo::core
