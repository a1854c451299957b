#include "library_test_support.h"
#include "media_folder_scan.h"
#include "media_index_scan.h"
#include "media_scan_error.h"
#include "worker_count.h"

#include <gtest/gtest.h>
#include <thread>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::canonicalText;
using test::ProgressLog;
using test::scanFailure;
using test::ScopedEnv;

void expectFailure(const test::ScanFailure& failure, const char* text, std::errc code) {
    EXPECT_EQ(failure.text, text);
    EXPECT_EQ(failure.code, std::make_error_code(code)) << failure.code.message();
}

TEST(IndexScan, PairsEachMediaFileWithItsBestGraphics) {
    test::TempDir dir;
    dir.write("a.mp3");
    dir.write("a.CDG");
    dir.write("a.cdg");
    dir.write("b.mp3");
    dir.write("b.cDG");
    dir.write("b.Cdg");
    dir.write("c - lonely.mp3");
    dir.write("Queen - Video.MP4");
    dir.write("notes.txt");
    dir.write("sub/SC-1 - Abba - Waterloo.mp3");
    dir.write("sub/SC-1 - Abba - Waterloo.cdg");
    const std::string root = canonicalText(dir.path());

    const MediaIndexSnapshot verified = buildMediaIndex(root, {}, false);
    ASSERT_EQ(verified.songs.size(), 5u);
    const std::vector<std::string> expectedPaths{root + "/Queen - Video.MP4", root + "/a.mp3", root + "/b.mp3",
                                                 root + "/c - lonely.mp3",
                                                 root + "/sub/SC-1 - Abba - Waterloo.mp3"};
    EXPECT_EQ(test::songPaths(verified.songs), expectedPaths);
    for (std::size_t i = 0; i < verified.songs.size(); ++i) EXPECT_EQ(verified.songs[i].id, static_cast<int>(i + 1));
    EXPECT_EQ(verified.songs[0].cdgPath, "");
    EXPECT_EQ(verified.songs[0].format, "mp4");
    EXPECT_EQ(verified.songs[1].cdgPath, root + "/a.cdg");
    EXPECT_EQ(verified.songs[2].cdgPath, root + "/b.Cdg");  // first in path order
    EXPECT_EQ(verified.songs[3].cdgPath, "");
    EXPECT_EQ(verified.songs[4].cdgPath, root + "/sub/SC-1 - Abba - Waterloo.cdg");
    EXPECT_EQ(verified.songs[4].artist, "Abba");
    EXPECT_EQ(verified.songs[4].title, "Waterloo");

    ASSERT_EQ(verified.stamps.size(), 2u);
    EXPECT_EQ(verified.stamps[0].key, ".");
    EXPECT_EQ(verified.stamps[1].key, "sub");
    EXPECT_EQ(verified.stamps[0].nameCount, 9u);  // 8 files that count, "sub/"
    EXPECT_EQ(verified.stamps[1].nameCount, 2u);

    // The plain scan finds the same songs.
    EXPECT_EQ(scanMediaFolder(root), verified.songs);

    // Trusted pairs touch no file: every song names its ".cdg", there or not.
    const MediaIndexSnapshot trusted = buildMediaIndex(root, {}, true);
    EXPECT_EQ(test::songPaths(trusted.songs), expectedPaths);
    EXPECT_EQ(trusted.songs[0].cdgPath, root + "/Queen - Video.cdg");
    EXPECT_EQ(trusted.songs[2].cdgPath, root + "/b.cdg");
    EXPECT_EQ(trusted.songs[3].artist, "c");
    EXPECT_EQ(trusted.songs[3].title, "lonely");
    EXPECT_EQ(trusted.stamps, verified.stamps);
}

TEST(IndexScan, SkipsSymbolicLinksWithoutTrace) {
    test::TempDir dir;
    dir.write("music/a/x.mp3");
    dir.write("outside/y.mp3");
    dir.write("outside/deeper/z.mp3");
    const fs::path root = dir / "music";
    const auto before = fingerprintMediaFolder(root, {});

    fs::create_directory_symlink(dir / "outside", root / "linked");
    fs::create_symlink(dir / "outside" / "y.mp3", root / "a" / "y.mp3");
    fs::create_symlink(dir / "outside" / "y.mp3", root / "y.cdg");
    fs::create_directory_symlink(root, root / "a" / "loop");

    EXPECT_TRUE(directoryStampsMatch(root, before, {}));
    const auto snapshot = buildMediaIndex(root, {}, false);
    EXPECT_EQ(test::songPaths(snapshot.songs), std::vector<std::string>{canonicalText(root / "a" / "x.mp3")});
    EXPECT_EQ(test::songPaths(scanMediaFolder(root)), test::songPaths(snapshot.songs));
}

TEST(IndexScan, SkipsMountPointsWithoutTrace) {
    test::TempDir dir;
    dir.write("music/a/x.mp3");
    dir.write("outside/y.mp3");
    dir.write("outside/y.cdg");
    const fs::path root = dir / "music";
    const auto before = fingerprintMediaFolder(root, {});

    fs::create_directory(root / "mounted");
    test::ScopedMount folder((dir / "outside").c_str(), root / "mounted", nullptr, MS_BIND, nullptr);
    if (!folder.mounted()) GTEST_SKIP() << "bind mounts need privileges this run does not have";
    dir.write("music/a/file.mp3");
    test::ScopedMount file((dir / "outside" / "y.mp3").c_str(), root / "a" / "file.mp3", nullptr, MS_BIND, nullptr);
    ASSERT_TRUE(file.mounted());

    EXPECT_TRUE(directoryStampsMatch(root, before, {}));
    const auto snapshot = scanStable(root, {}, false);
    EXPECT_EQ(test::songPaths(snapshot.songs), std::vector<std::string>{canonicalText(root / "a" / "x.mp3")});
    EXPECT_EQ(test::songPaths(scanMediaFolder(root)), test::songPaths(snapshot.songs));
}

TEST(IndexScan, AllowsSixtyFourLevelsAndRefusesTheNext) {
    test::TempDir dir;
    fs::path deepest = dir.path();
    for (int level = 0; level < 64; ++level) deepest /= "d";
    fs::create_directories(deepest);
    dir.write((fs::relative(deepest, dir.path()) / "song.mp3").string());

    EXPECT_EQ(scanStable(dir.path(), {}, true).songs.size(), 1u);
    EXPECT_EQ(scanMediaFolder(dir.path()).size(), 1u);

    fs::create_directory(deepest / "d");
    expectFailure(scanFailure([&] { buildMediaIndex(dir.path(), {}, true); }),
                  "Media folder nesting exceeded the safe depth limit", std::errc::value_too_large);
    expectFailure(scanFailure([&] { scanMediaFolder(dir.path()); }),
                  "Media folder nesting exceeded the safe depth limit", std::errc::value_too_large);

    // A limit failure is thrown at once, never retried.
    ProgressLog log;
    expectFailure(scanFailure([&] { scanStable(dir.path(), log.callback(), true); }),
                  "Media folder nesting exceeded the safe depth limit", std::errc::value_too_large);
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

    dir.write("Artist/notes.txt");
    dir.write("Artist/cover.jpg");
    dir.write("Artist/a.mp3", "replaced in place");
    fs::last_write_time(root / "Other", fs::file_time_type::clock::now() - std::chrono::hours(5));
    EXPECT_TRUE(directoryStampsMatch(root, base, {}));

    for (const char* added : {"Artist/b.mp3", "Artist/b.CDG", "Other/c.webm"}) {
        const auto file = dir.write(added);
        EXPECT_FALSE(directoryStampsMatch(root, base, {})) << added;
        fs::remove(file);
        EXPECT_TRUE(directoryStampsMatch(root, base, {})) << added;
    }

    fs::rename(root / "Other", root / "Others");
    const auto renamed = fingerprintMediaFolder(root, {});
    EXPECT_FALSE(directoryStampsMatch(root, base, {}));
    EXPECT_NE(renamed[0].nameHash, base[0].nameHash);  // the root lists "Others/" now
    EXPECT_EQ(renamed[0].nameCount, base[0].nameCount);

    // The terminator keeps names apart that would otherwise hash alike.
    test::TempDir left;
    test::TempDir right;
    left.write("ab.mp3c.mp3");
    right.write("ab.mp3");
    right.write("c.mp3");
    EXPECT_NE(fingerprintMediaFolder(left.path(), {})[0].nameHash, fingerprintMediaFolder(right.path(), {})[0].nameHash);
    test::TempDir empty;
    EXPECT_EQ(fingerprintMediaFolder(empty.path(), {})[0].nameHash, 0xcbf29ce484222325ULL);
    EXPECT_FALSE(directoryStampsMatch(root / "Artist" / "a.mp3", base, {}));
}

TEST(IndexScan, AFolderThatKeepsChangingFailsAfterThreeAttempts) {
    test::TempDir dir;
    dir.write("a.mp3");
    int added = 0;
    const ScanProgress changing = [&](std::uint64_t, std::uint64_t) {
        dir.write("new-" + std::to_string(++added) + ".mp3");
    };
    expectFailure(scanFailure([&] { scanStable(dir.path(), changing, true); }),
                  "Media folder did not stabilize during scan", std::errc::state_not_recoverable);

    // A folder that changes during the first attempt only is read again.
    bool once = true;
    const ScanProgress settling = [&](std::uint64_t, std::uint64_t) {
        if (once) dir.write("late.mp3");
        once = false;
    };
    const auto snapshot = scanStable(dir.path(), settling, true);
    EXPECT_EQ(snapshot.songs.size(), static_cast<std::size_t>(added) + 2);
    EXPECT_TRUE(directoryStampsMatch(dir.path(), snapshot.stamps, {}));
}

TEST(IndexScan, RefusesADirectoryThatLeavesTheTree) {
    test::TempDir dir;
    dir.write("music/a/b/x.mp3");
    dir.write("outside/b/y.mp3");
    const fs::path root = dir / "music";

    // "a" turns into a link after the root was listed.
    int reads = 0;
    const auto swapAfter = [&](int read) {
        return [&, read](std::uint64_t, std::uint64_t total) {
            if (total == 0 && ++reads == read) {
                fs::rename(root / "a", dir / "kept-a");
                fs::create_directory_symlink(dir / "outside", root / "a");
            }
        };
    };
    expectFailure(scanFailure([&] { buildMediaIndex(root, swapAfter(1), false); }),
                  "Media folder changed or became unsafe during scan", std::errc::io_error);

    // Swapped after "a" was listed: "a/b" now resolves outside the root.
    fs::remove(root / "a");
    fs::rename(dir / "kept-a", root / "a");
    reads = 0;
    expectFailure(scanFailure([&] { buildMediaIndex(root, swapAfter(2), false); }),
                  "Media subfolder escaped its root", std::errc::invalid_argument);

    // The root itself meets the same guard.
    fs::create_directory_symlink(root, dir / "shortcut");
    expectFailure(scanFailure([&] { buildMediaIndex(dir / "absent", {}, true); }),
                  "Media folder changed or became unsafe during scan", std::errc::no_such_file_or_directory);
    expectFailure(scanFailure([&] { scanStable(dir / "shortcut", {}, true); }),
                  "Media folder changed or became unsafe during scan", std::errc::io_error);
    expectFailure(scanFailure([&] { buildMediaIndex(dir / "outside" / "b" / "y.mp3", {}, true); }),
                  "Media folder changed or became unsafe during scan", std::errc::io_error);
}

TEST(WorkerCount, ReadsTheEnvironmentStrictly) {
    EXPECT_EQ(parseWorkerCount("4"), 4u);
    EXPECT_EQ(parseWorkerCount("4294967295"), 4294967295u);
    for (const char* ignored : {"", "0", "4x", " 4", "-1", "4294967296", "99999999999999999999"}) {
        EXPECT_EQ(parseWorkerCount(ignored), std::nullopt) << ignored;
    }

    const unsigned hardware = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
    const char* name = "TAMO_MEDIA_INDEX_WORKERS";
    for (const char* ignored : {"0", "", "4x", "4294967296"}) {
        ScopedEnv env(name, ignored);
        EXPECT_EQ(chooseWorkerCount(name, 1000), hardware) << ignored;
    }
    {
        ScopedEnv env(name, "32");
        EXPECT_EQ(chooseWorkerCount(name, 1000), 8u);
        EXPECT_EQ(chooseWorkerCount(name, 3), 3u);
        EXPECT_EQ(chooseWorkerCount(name, 0), 1u);
    }
    ScopedEnv env(name, nullptr);
    EXPECT_EQ(chooseWorkerCount(name, 1000), hardware);
}

TEST(IndexScan, SongMakingSpreadsOverWorkersOnlyForLargeFolders) {
    test::TempDir dir;
    for (int i = 0; i < 1024; ++i) {
        dir.write("Artist " + std::to_string(i % 7) + "/Artist - Song " + std::to_string(i) + ".mp3");
        if (i % 3 == 0) dir.write("Artist " + std::to_string(i % 7) + "/Artist - Song " + std::to_string(i) + ".cdg");
    }
    ScopedEnv env("TAMO_MEDIA_INDEX_WORKERS", "8");

    // Workers report nothing; only the calling thread does, once at the end.
    const auto caller = std::this_thread::get_id();
    ProgressLog parallelLog;
    bool foreignThread = false;
    const MediaIndexSnapshot parallel = buildMediaIndex(dir.path(), [&](std::uint64_t done, std::uint64_t total) {
        foreignThread = foreignThread || std::this_thread::get_id() != caller;
        parallelLog.calls.emplace_back(done, total);
    }, false);
    EXPECT_FALSE(foreignThread);
    EXPECT_TRUE(parallelLog.saw(0, 1024));
    EXPECT_TRUE(parallelLog.saw(1024, 1024));
    EXPECT_FALSE(parallelLog.saw(256, 1024));

    ScopedEnv serialEnv("TAMO_MEDIA_INDEX_WORKERS", "1");
    ProgressLog serialLog;
    const MediaIndexSnapshot serial = buildMediaIndex(dir.path(), serialLog.callback(), false);
    EXPECT_TRUE(serialLog.saw(256, 1024));
    EXPECT_EQ(parallel.songs, serial.songs);
    EXPECT_EQ(std::count_if(serial.songs.begin(), serial.songs.end(), [](const Song& s) { return !s.cdgPath.empty(); }),
              342);

    // 511 candidates stay on the calling thread whatever the setting says.
    for (int i = 511; i < 1024; ++i) fs::remove(fs::path(serial.songs[static_cast<std::size_t>(i)].path));
    ScopedEnv manyEnv("TAMO_MEDIA_INDEX_WORKERS", "8");
    ProgressLog smallLog;
    EXPECT_EQ(buildMediaIndex(dir.path(), smallLog.callback(), true).songs.size(), 511u);
    EXPECT_TRUE(smallLog.saw(256, 511));
    EXPECT_TRUE(smallLog.saw(511, 511));
}

TEST(IndexScan, AWorkerFailureReachesTheCaller) {
    test::TempDir dir;
    for (int i = 0; i < 2048; ++i) dir.write("song " + std::to_string(1000 + i) + ".mp3");
    ScopedEnv env("TAMO_MEDIA_INDEX_WORKERS", "4");
    // The file disappears between listing and song making.
    const ScanProgress vanish = [&](std::uint64_t done, std::uint64_t total) {
        if (done == 0 && total == 2048) fs::remove(dir / "song 2500.mp3");
    };
    const auto error = scanFailure([&] { buildMediaIndex(dir.path(), vanish, false); });
    expectFailure(error, "Media file changed or became unreadable during scan", std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.path, canonicalText(dir.path()) + "/song 2500.mp3");
}

}  // namespace
}  // namespace tamo::core
