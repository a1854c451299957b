#include "library_test_support.h"
#include "media_folder_scan.h"
#include "media_index_cache.h"
#include "media_index_load.h"
#include "media_index_scan.h"
#include "song_search.h"

#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::scanFailure;

// Whatever a read accepts must still be a sound library of this root.
void expectSoundOrEmpty(bool ok, const std::vector<DirectoryStamp>& stamps, const std::vector<Song>& songs,
                        const std::string& root) {
    if (!ok) {
        EXPECT_TRUE(stamps.empty());
        EXPECT_TRUE(songs.empty());
        return;
    }
    for (std::size_t i = 0; i < songs.size(); ++i) {
        EXPECT_EQ(songs[i].id, static_cast<std::int32_t>(i + 1));
        EXPECT_EQ(songs[i].path.rfind(root + "/", 0), 0u) << songs[i].path;
        if (i > 0) {
            EXPECT_LT(songs[i - 1].path, songs[i].path);
        }
    }
}

TEST(BadInput, CacheFilesOfRandomContentNeverPassUnsound) {
    test::TempDir dir;
    dir.write("music/a/x.mp3");
    dir.write("music/a/x.cdg");
    dir.write("music/y.mp4");
    const std::string root = test::canonicalText(dir / "music");
    const fs::path cache = dir / "cache.tsv";
    writeMediaIndexCache(cache, root, scanStable(root, {}, false));
    const std::string valid = test::slurp(cache);
    ASSERT_FALSE(valid.empty());

    const std::vector<std::string> tokens{"TAMO_MEDIA_INDEX_V5", "TAMO_MEDIA_INDEX_V4", "ROOT", "DIRS", "DIR", "SONGS",
                                          "SONG", "\t", "\n", "\n", ".", "a", "a/x.mp3", "y.mp4", "x.cdg", "..", "/",
                                          "\\", "\\t", "0", "1", "2", "18446744073709551616", "-", root, "\r", "\xff"};
    std::mt19937 random(20240611);
    std::vector<DirectoryStamp> stamps;
    std::vector<Song> songs;
    for (int round = 0; round < 600; ++round) {
        std::string content;
        if (round % 3 == 0) {
            const std::size_t length = random() % 400;
            for (std::size_t i = 0; i < length; ++i) content += static_cast<char>(random() % 256);
        } else if (round % 3 == 1) {
            const std::size_t count = random() % 60;
            for (std::size_t i = 0; i < count; ++i) content += tokens[random() % tokens.size()];
        } else {
            content = valid;
            const std::size_t flips = 1 + random() % 4;
            for (std::size_t i = 0; i < flips; ++i) content[random() % content.size()] = static_cast<char>(random() % 256);
        }
        std::ofstream(cache, std::ios::binary | std::ios::trunc) << content;
        const bool ok = readMediaIndexCache(cache, root, stamps, songs, nullptr, {}, round % 2 == 0);
        expectSoundOrEmpty(ok, stamps, songs, root);
    }
}

TEST(BadInput, AwkwardTreesGiveACleanResultOrAQuotedFailure) {
    test::TempDir dir;
    const fs::path root = dir / "music";
    dir.write("music/Line\nBreak - Song.mp3");
    dir.write("music/Line\nBreak - Song.cdg");
    dir.write("music/Tab\tArtist - Title.mkv");
    dir.write("music/\xc3\x28 invalid - \xff\xfe.mp4");
    dir.write("music/.mp3");       // a hidden file without an extension
    dir.write("music/..mp3");
    dir.write("music/- .webm");
    dir.write("music/noise.MP3.txt");
    fs::create_directory_symlink(root, root / "self");
    fs::create_directory_symlink("..", root / "up");
    fs::create_directory_symlink(root / "loop-b", root / "loop-a");
    fs::create_directory_symlink(root / "loop-a", root / "loop-b");
    fs::create_symlink(root / "nowhere.mp3", root / "dangling.mp3");
    ASSERT_EQ(::mkfifo((root / "pipe.mp3").c_str(), 0600), 0);

    const std::vector<std::string> expected{"- .webm", "..mp3", "Line\nBreak - Song.mp3", "Tab\tArtist - Title.mkv",
                                            "\xc3\x28 invalid - \xff\xfe.mp4"};
    const auto names = [](const std::vector<Song>& songs) {
        std::vector<std::string> out;
        for (const auto& s : songs) out.push_back(fs::path(s.path).filename().string());
        return out;
    };
    const MediaIndexLoad loaded = loadMediaIndex(root, dir / "cache.tsv", MediaIndexMode::VerifyCache, {});
    EXPECT_EQ(names(loaded.songs), expected);
    EXPECT_EQ(names(scanMediaFolder(root)), expected);
    EXPECT_EQ(loaded.songs[2].cdgPath, test::canonicalText(root / "Line\nBreak - Song.cdg"));
    const MediaIndexLoad again = loadMediaIndex(root, dir / "cache.tsv", MediaIndexMode::VerifyCache, {});
    EXPECT_FALSE(again.rebuilt);
    EXPECT_EQ(again.songs, loaded.songs);
    EXPECT_EQ(searchSongs(again.songs, "\xff\xfe", 0).size(), 1u);
    EXPECT_EQ(searchSongs(again.songs, "artist\t", 0).size(), 1u);

}

TEST(BadInput, AnUnreadableFolderGivesAQuotedFailure) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions don't stop root from reading a folder";
    test::TempDir dir;
    const fs::path root = dir / "music";
    dir.write("music/a.mp3");
    fs::create_directory(root / "closed");
    fs::permissions(root / "closed", fs::perms::none);
    const auto indexed = scanFailure([&] { scanStable(root, {}, false); });
    EXPECT_EQ(indexed.text, "Could not open media folder");
    EXPECT_EQ(indexed.code, std::make_error_code(std::errc::permission_denied));
    const auto plain = scanFailure([&] { scanMediaFolder(root); });
    EXPECT_EQ(plain.text, "Media folder changed or became unreadable during scan");
    EXPECT_EQ(plain.code, std::make_error_code(std::errc::permission_denied));
    fs::permissions(root / "closed", fs::perms::owner_all);
}

TEST(PlainScan, ResolvesTheRootAndRefusesWhatIsNoFolder) {
    test::TempDir dir;
    dir.write("music/Artist - Song.mp3");
    dir.write("music/Artist - Song.cDg");
    fs::create_directory_symlink(dir / "music", dir / "shortcut");
    const auto songs = scanMediaFolder(dir / "shortcut");
    ASSERT_EQ(songs.size(), 1u);
    EXPECT_EQ(songs[0].path, test::canonicalText(dir / "music") + "/Artist - Song.mp3");
    EXPECT_EQ(songs[0].cdgPath, test::canonicalText(dir / "music") + "/Artist - Song.cDg");
    EXPECT_EQ(songs[0].id, 1);

    const auto missing = scanFailure([&] { scanMediaFolder(dir / "absent"); });
    EXPECT_EQ(missing.text, "Could not resolve media folder");
    EXPECT_EQ(missing.code, std::make_error_code(std::errc::no_such_file_or_directory));
    const auto file = scanFailure([&] { scanMediaFolder(dir / "music" / "Artist - Song.mp3"); });
    EXPECT_EQ(file.text, "Media folder is not a directory");
    EXPECT_EQ(file.code, std::make_error_code(std::errc::io_error));
    EXPECT_TRUE(scanMediaFolder(dir.write("empty/readme.txt").parent_path()).empty());
}

TEST(PlainScan, NumbersSongsInPathOrderWhileTheIndexScanUsesBytes) {
    test::TempDir dir;
    for (const char* name : {"a b/x.mp4", "a-b/z.mp4", "a/y.mp4"}) dir.write(name);
    const std::string root = test::canonicalText(dir.path());
    // Path order compares element by element: "a" ends before "a b".
    EXPECT_EQ(test::songPaths(scanMediaFolder(root)),
              (std::vector<std::string>{root + "/a/y.mp4", root + "/a b/x.mp4", root + "/a-b/z.mp4"}));
    EXPECT_EQ(test::songPaths(buildMediaIndex(root, {}, true).songs),
              (std::vector<std::string>{root + "/a b/x.mp4", root + "/a-b/z.mp4", root + "/a/y.mp4"}));
}

}  // namespace
}  // namespace tamo::core
