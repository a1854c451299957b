#include "library_test_support.h"
#include "media_index_cache.h"
#include "media_index_load.h"
#include "media_index_scan.h"
#include "media_folder_scan.h"
#include "song_search.h"

#include <fstream>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::namesWith;
using test::slurp;

// A small media folder, "a/x.mp3" with its "a/x.cdg" and a video "y.mp4",
// and a cache file to write by hand and read back.
struct CacheFixture {
    test::TempDir dir;
    std::string root;
    fs::path cache = dir / "data" / "media-index-cache.tsv";
    std::vector<DirectoryStamp> stamps;
    std::vector<Song> songs;

    CacheFixture() {
        for (const char* name : {"music/a/x.mp3", "music/a/x.cdg", "music/y.mp4"}) dir.write(name);
        root = test::canonicalText(dir / "music");
        fs::create_directories(cache.parent_path());
    }

    std::string text(const std::vector<std::string>& dirs, const std::vector<std::string>& songLines,
                     std::string_view magic = kMediaIndexMagicV5) const {
        std::string out(magic);
        out += "\nROOT\t" + escapeCacheField(root) + "\nDIRS\t" + std::to_string(dirs.size()) + "\n";
        for (const auto& line : dirs) out += "DIR\t" + line + "\n";
        out += "SONGS\t" + std::to_string(songLines.size()) + "\n";
        for (const auto& line : songLines) out += "SONG\t" + line + "\n";
        return out;
    }
    std::string valid() const {
        return text({".\t0\t2\t1", "a\t0\t2\t2"}, {"1\ta/x.mp3\tx\t\tmp3\ta/x.cdg", "2\ty.mp4\ty\t\tmp4\t"});
    }

    // Writes content as the cache and reads it back. A refusal must leave
    // both lists empty.
    bool read(const std::string& content, bool checkDisk = false, bool* upgrade = nullptr) {
        std::ofstream(cache, std::ios::binary | std::ios::trunc) << content;
        return readBack(checkDisk, upgrade);
    }
    bool readBack(bool checkDisk = false, bool* upgrade = nullptr) {
        stamps = {{"stale", 1, 1, 1}};
        songs = {Song{}};
        const bool ok = readMediaIndexCache(cache, root, stamps, songs, upgrade, {}, checkDisk);
        EXPECT_TRUE(ok || (stamps.empty() && songs.empty()));
        return ok;
    }
};

TEST(MediaIndexCache, ReadsWellFormedFilesIntoAbsolutePathsAndRefusesEverythingElse) {
    CacheFixture f;
    ASSERT_TRUE(f.read(f.valid(), true));
    EXPECT_EQ(f.songs, (std::vector<Song>{{1, f.root + "/a/x.mp3", "x", "", "mp3", f.root + "/a/x.cdg"},
                                          {2, f.root + "/y.mp4", "y", "", "mp4", ""}}));
    EXPECT_EQ(f.stamps, (std::vector<DirectoryStamp>{{".", 0, 2, 1}, {"a", 0, 2, 2}}));
    // Trailing blank lines are passed over, as is a missing final line end.
    EXPECT_TRUE(f.read(f.valid() + "\n\n"));
    EXPECT_TRUE(f.read(f.valid().substr(0, f.valid().size() - 1)));
    // A backslash before any other byte is dropped, one at the very end stays;
    // the widest numbers each field can hold are read.
    EXPECT_TRUE(f.read(f.text({".\t-9223372036854775808\t18446744073709551615\t18446744073709551615",
                               "a\t9223372036854775807\t0\t0"},
                              {"1\ta/x.mp3\t\\x\\q\tArtist\\\tmp3\t"})));
    EXPECT_EQ(f.songs[0].title + "|" + f.songs[0].artist, "xq|Artist\\");
    EXPECT_EQ(f.stamps, (std::vector<DirectoryStamp>{{".", INT64_MIN, UINT64_MAX, UINT64_MAX}, {"a", INT64_MAX, 0, 0}}));

    fs::create_directory_symlink(f.dir / "music" / "a", f.dir / "music" / "linked");
    const std::string head = "TAMO_MEDIA_INDEX_V5\nROOT\t" + f.root + "\n";
    const std::string both = ".\t0\t2\t1", a = "a\t0\t2\t2", dot = ".\t0\t0\t0";
    const std::vector<std::pair<std::string, std::string>> refused{
        {"one byte", "T"},
        {"no directories", f.text({}, {})},
        {"wrong magic", "TAMO_MEDIA_INDEX_V6" + f.valid().substr(19)},
        {"another root", "TAMO_MEDIA_INDEX_V5\nROOT\t/elsewhere\nDIRS\t1\nDIR\t.\t0\t0\t0\nSONGS\t0\n"},
        {"skipped id", f.text({both, a}, {"1\ta/x.mp3\tx\t\tmp3\t", "3\ty.mp4\ty\t\tmp4\t"})},
        {"songs out of order", f.text({both, a}, {"1\ty.mp4\ty\t\tmp4\t", "2\ta/x.mp3\tx\t\tmp3\t"})},
        {"same song twice", f.text({both, a}, {"1\ty.mp4\ty\t\tmp4\t", "2\ty.mp4\ty\t\tmp4\t"})},
        {"trailing text", f.valid() + "\nextra\n"},
        {"dot-dot key", f.text({dot, "a/../b\t0\t0\t0"}, {})},
        {"dot key element", f.text({dot, "./a\t0\t0\t0"}, {})},
        {"empty key element", f.text({dot, "a\t0\t0\t0", "a//b\t0\t0\t0"}, {})},
        {"absolute key", f.text({dot, "/tmp\t0\t0\t0"}, {})},
        {"parent not listed", f.text({dot, "a/b\t0\t0\t0"}, {})},
        {"duplicate key", f.text({dot, "a\t0\t0\t0", "a\t0\t0\t0"}, {})},
        {"folder gone from disk", f.text({dot, "gone\t0\t0\t0"}, {})},
        {"folder now a link", f.text({dot, "linked\t0\t0\t0"}, {})},
        {"four-field dir", f.text({".\t0\t0"}, {})},
        {"timestamp overflow", f.text({".\t9223372036854775808\t0\t0"}, {})},
        {"hash overflow", f.text({".\t0\t0\t18446744073709551616"}, {})},
        {"signed count", f.text({".\t0\t-1\t0"}, {})},
        {"forged count", head + "DIRS\t100000\nDIR\t.\t0\t0\t0\nSONGS\t0\n"},
        {"count over limit", head + "DIRS\t100001\n"},
        {"escape from root", f.text({dot}, {"1\t../x.mp3\tx\t\tmp3\t"})},
        {"absolute media in V5", f.text({dot}, {"1\t" + f.root + "/y.mp4\ty\t\tmp4\t"})},
        {"media folder not listed", f.text({dot}, {"1\ta/x.mp3\tx\t\tmp3\t"})},
        {"not a media extension", f.text({dot}, {"1\ty.txt\ty\t\ttxt\t"})},
        {"graphics of the wrong kind", f.text({dot}, {"1\ty.mp4\ty\t\tmp4\ty.mp3"})},
        {"empty media", f.text({dot}, {"1\t\ty\t\tmp4\t"})},
        {"six-field song", f.text({dot}, {"1\ty.mp4\ty\t\tmp4"})},
        {"id zero", f.text({dot}, {"0\ty.mp4\ty\t\tmp4\t"})},
        {"line too long", f.text({dot}, {"1\ty.mp4\t" + std::string(0x100001, 't') + "\t\tmp4\t"})},
    };
    for (const auto& [name, content] : refused) EXPECT_FALSE(f.read(content)) << name;

    // An oversized file is refused by its size alone; so are a link to a
    // good file and no file at all.
    f.read(f.valid());
    fs::resize_file(f.cache, 0x10000001);
    EXPECT_FALSE(f.readBack());
    fs::remove(f.cache);
    EXPECT_FALSE(f.readBack());
    fs::create_symlink(f.dir.write("elsewhere.tsv", f.valid()), f.cache);
    EXPECT_FALSE(f.readBack());
    fs::remove(f.cache);

    // A missing media file is seen only when the disk is checked.
    fs::remove(f.dir / "music" / "y.mp4");
    EXPECT_TRUE(f.read(f.valid(), false));
    EXPECT_FALSE(f.read(f.valid(), true));
}

TEST(MediaIndexCache, FilesOfRandomContentNeverPassUnsound) {
    CacheFixture f;
    writeMediaIndexCache(f.cache, f.root, scanStable(f.root, {}, false));
    const std::string valid = slurp(f.cache);
    ASSERT_FALSE(valid.empty());
    const std::vector<std::string> tokens{"TAMO_MEDIA_INDEX_V5", "TAMO_MEDIA_INDEX_V4", "ROOT", "DIRS", "DIR", "SONGS",
                                          "SONG", "\t", "\n", "\n", ".", "a", "a/x.mp3", "y.mp4", "x.cdg", "..", "/",
                                          "\\", "\\t", "0", "1", "2", "18446744073709551616", "-", f.root, "\r", "\xff"};
    std::mt19937 random(20240611);
    for (int round = 0; round < 600; ++round) {
        std::string content = round % 3 == 2 ? valid : "";
        for (std::size_t i = round % 3 == 2 ? 1 + random() % 4 : random() % 400; i > 0; --i) {
            if (round % 3 == 0) content += static_cast<char>(random());
            if (round % 3 == 1 && i % 7 == 0) content += tokens[random() % tokens.size()];
            if (round % 3 == 2) content[random() % content.size()] = static_cast<char>(random());
        }
        // Whatever a read accepts must still be a sound library of this root.
        if (!f.read(content, round % 2 == 0)) continue;
        for (std::size_t i = 0; i < f.songs.size(); ++i) {
            EXPECT_EQ(f.songs[i].id, static_cast<std::int32_t>(i + 1));
            EXPECT_EQ(f.songs[i].path.rfind(f.root + "/", 0), 0u) << f.songs[i].path;
            EXPECT_TRUE(i == 0 || f.songs[i - 1].path < f.songs[i].path) << f.songs[i].path;
        }
    }
}

TEST(MediaIndexCache, RoundTripsAScanOfAwkwardNames) {
    CacheFixture f;
    // ".mp3" is a hidden file without an extension, "..mp3" is media; a FIFO
    // and a dangling link are not, whatever their names.
    for (const char* name : {"Tab\there - Back\\slash.mp3", "Tab\there - Back\\slash.cdg", "Line\nbreak - Carriage\rreturn.mkv",
                             "\xc3\x28 broken - \xff\xfe.webm", "sub folder\\with\tstuff/deep.mov", ".mp3", "..mp3",
                             "- .webm", "noise.MP3.txt"}) {
        f.dir.write("music/" + std::string(name));
    }
    fs::create_symlink(f.dir / "music" / "nowhere.mp3", f.dir / "music" / "dangling.mp3");
    ASSERT_EQ(::mkfifo((f.dir / "music" / "pipe.mp3").c_str(), 0600), 0);
    const MediaIndexSnapshot snapshot = scanStable(f.root, {}, false);
    ASSERT_EQ(snapshot.songs.size(), 8u);
    EXPECT_EQ(scanMediaFolder(f.root), snapshot.songs);

    writeMediaIndexCache(f.cache, f.root, snapshot);
    const std::string text = slurp(f.cache);
    EXPECT_EQ(text.rfind("TAMO_MEDIA_INDEX_V5\n", 0), 0u);
    EXPECT_NE(text.find("\tTab\\there - Back\\\\slash.mp3\tBack\\\\slash\tTab\\there\tmp3\tTab\\there - Back\\\\slash.cdg\n"),
              std::string::npos);
    EXPECT_NE(text.find("DIR\tsub folder\\\\with\\tstuff\t"), std::string::npos);
    EXPECT_TRUE(namesWith(f.cache.parent_path(), ".tmp.").empty());
    ASSERT_TRUE(f.readBack(true));
    EXPECT_EQ(f.songs, snapshot.songs);
    EXPECT_EQ(f.stamps, snapshot.stamps);
    EXPECT_FALSE(loadMediaIndex(f.root, f.cache, MediaIndexMode::VerifyCache, {}).rebuilt);
    EXPECT_EQ(searchSongs(f.songs, "\xff\xfe", 0).size(), 1u);
    EXPECT_EQ(searchSongs(f.songs, "SLASH\t", 0).size(), 1u);  // the name after the backslash
}

TEST(MediaIndexCache, WriterKeepsTheOldFileWhenASongLiesOutsideTheRoot) {
    CacheFixture f;
    const MediaIndexSnapshot snapshot = scanStable(f.root, {}, false);
    writeMediaIndexCache(f.cache, f.root, snapshot);
    const std::string good = slurp(f.cache);

    MediaIndexSnapshot stray = snapshot;
    stray.songs.push_back(Song{3, "/elsewhere/z.mp3", "z", "", "mp3", ""});
    writeMediaIndexCache(f.cache, f.root, stray);
    stray.songs.pop_back();
    stray.songs[0].cdgPath = f.root;  // the prefix alone is not a path below it
    writeMediaIndexCache(f.cache, f.root, stray);
    writeMediaIndexCache(f.cache, "", snapshot);
    EXPECT_EQ(slurp(f.cache), good);
    EXPECT_TRUE(namesWith(f.cache.parent_path(), ".tmp.").empty());

    // The file system root gets no second separator.
    writeMediaIndexCache(f.cache, "/", MediaIndexSnapshot{{{".", 0, 0, 0}}, {Song{1, "/x.mp3", "x", "", "mp3", "/x.cdg"}}});
    EXPECT_NE(slurp(f.cache).find("SONG\t1\tx.mp3\tx\t\tmp3\tx.cdg\n"), std::string::npos);
}

TEST(MediaIndexCache, V4FilesLoadAndAVerifiedLoadRewritesThemAsV5) {
    CacheFixture f;
    std::vector<std::string> dirs;
    for (const auto& stamp : scanStable(f.root, {}, false).stamps) {
        dirs.push_back(stamp.key + "\t0\t" + std::to_string(stamp.nameCount) + "\t" + std::to_string(stamp.nameHash));
    }
    const std::string v4 = f.text(dirs, {"1\t" + f.root + "/a/x.mp3\tx\t\tmp3\t" + f.root + "/a/x.cdg",
                                         "2\t" + f.root + "/y.mp4\ty\t\tmp4\t"}, kMediaIndexMagicV4);
    bool upgrade = false;
    ASSERT_TRUE(f.read(v4, true, &upgrade));
    EXPECT_TRUE(upgrade);
    EXPECT_EQ(f.songs[0].cdgPath, f.root + "/a/x.cdg");
    for (const std::string& outside : {std::string("/elsewhere/y.mp4"), f.root + "/../music/y.mp4", f.root + "/./y.mp4",
                                       std::string("y.mp4")}) {
        EXPECT_FALSE(f.read(f.text({".\t0\t0\t0"}, {"1\t" + outside + "\ty\t\tmp4\t"}, kMediaIndexMagicV4))) << outside;
    }

    // A trusted load leaves the file as it is; a verified one rewrites it.
    f.read(v4);
    const MediaIndexLoad trusted = loadMediaIndex(f.root, f.cache, MediaIndexMode::TrustCache, {});
    EXPECT_FALSE(trusted.rebuilt);
    EXPECT_EQ(slurp(f.cache), v4);
    const MediaIndexLoad verified = loadMediaIndex(f.root, f.cache, MediaIndexMode::VerifyCache, {});
    EXPECT_FALSE(verified.rebuilt);
    EXPECT_EQ(verified.songs, trusted.songs);
    ASSERT_TRUE(f.readBack(true, &upgrade));
    EXPECT_FALSE(upgrade);
    EXPECT_EQ(f.songs, verified.songs);
}

TEST(MediaIndexLoad, EachModeUsesOrRebuildsTheCacheAsItShould) {
    CacheFixture f;
    fs::remove_all(f.cache.parent_path());
    const auto load = [&](MediaIndexMode mode, const ScanProgress& progress = {}) {
        return loadMediaIndex(f.dir / "music", f.cache, mode, progress);
    };

    // First load: a trusted scan, written to a cache in a folder made for it.
    const MediaIndexLoad first = load(MediaIndexMode::TrustCache);
    EXPECT_TRUE(first.rebuilt);
    ASSERT_EQ(first.songs.size(), 2u);
    EXPECT_EQ(first.songs[1].cdgPath, f.root + "/y.cdg");  // assumed, not checked
    EXPECT_NE(slurp(f.cache).find("ROOT\t" + f.root + "\n"), std::string::npos);
    test::ProgressLog log;
    const MediaIndexLoad cached = load(MediaIndexMode::TrustCache, log.callback());
    EXPECT_FALSE(cached.rebuilt);
    EXPECT_EQ(cached.songs, first.songs);
    EXPECT_EQ(log.calls, (std::vector<std::pair<std::uint64_t, std::uint64_t>>{{0, 2}, {2, 2}}));

    // A new file is not noticed by a trusted load, but by a verified one,
    // and a rebuild of the same files keeps every identity.
    f.dir.write("music/a/z.mp3");
    EXPECT_EQ(load(MediaIndexMode::TrustCache).songs.size(), 2u);
    const MediaIndexLoad verified = load(MediaIndexMode::VerifyCache);
    EXPECT_TRUE(verified.rebuilt);
    ASSERT_EQ(verified.songs.size(), 3u);
    EXPECT_EQ(verified.songs[2].cdgPath, "");  // checked this time
    const MediaIndexLoad again = load(MediaIndexMode::VerifyCache);
    EXPECT_FALSE(again.rebuilt);
    EXPECT_EQ(again.songs, verified.songs);
    const MediaIndexLoad rebuilt = load(MediaIndexMode::RebuildCache);
    EXPECT_TRUE(rebuilt.rebuilt);
    EXPECT_EQ(rebuilt.songs, verified.songs);

    // A listed folder that is gone is refused even by a trusted load.
    fs::remove_all(f.dir / "music" / "a");
    const MediaIndexLoad afterRemoval = load(MediaIndexMode::TrustCache);
    EXPECT_TRUE(afterRemoval.rebuilt);
    EXPECT_EQ(afterRemoval.songs.size(), 1u);

    // The cache of another folder is never used for this one, and without a
    // cache path nothing is read or written.
    f.dir.write("other/Other - Song.mp3");
    EXPECT_TRUE(loadMediaIndex(f.dir / "other", f.cache, MediaIndexMode::TrustCache, {}).rebuilt);
    EXPECT_TRUE(loadMediaIndex(f.dir / "music", "", MediaIndexMode::TrustCache, {}).rebuilt);

    const auto file = f.dir.write("song.mp3");
    const fs::path unused = f.dir / "unused.tsv";
    EXPECT_TRUE(test::failsWith([&] { loadMediaIndex(f.dir / "absent", unused, MediaIndexMode::TrustCache, {}); },
                                "Could not resolve media folder", std::errc::no_such_file_or_directory));
    EXPECT_TRUE(test::failsWith([&] { loadMediaIndex(file, unused, MediaIndexMode::VerifyCache, {}); },
                                "Media folder is not a directory", std::errc::io_error));
    EXPECT_FALSE(fs::exists(unused));
}

// A full or read-only target: the old cache stands and no temporary stays.
// Root gets a small file system of its own, full and then read-only; anyone
// else a folder without write permission.
TEST(MediaIndexCache, AFailedWriteLeavesTheOldCacheWholeAndNoTemporary) {
    CacheFixture f;
    const fs::path folder = f.cache.parent_path();
    std::optional<test::ScopedMount> disk;
    if (::geteuid() == 0) {
        disk.emplace("tmpfs", folder, "tmpfs", 0, "size=256k");
        if (!disk->mounted()) GTEST_SKIP() << "mounting a small file system needs privileges this run does not have";
    }
    const MediaIndexLoad first = loadMediaIndex(f.root, f.cache, MediaIndexMode::RebuildCache, {});
    const std::string old = slurp(f.cache);
    ASSERT_FALSE(old.empty());
    const auto expectOldCacheOnly = [&] {
        EXPECT_EQ(slurp(f.cache), old);
        EXPECT_TRUE(namesWith(folder, ".tmp.").empty());
    };
    f.dir.write("music/new.mp3");

    if (disk) {
        for (std::ofstream filler(folder / "filler", std::ios::binary); filler << std::string(4096, 'f') << std::flush;) {
        }
        // The load still answers, with a fresh scan.
        const MediaIndexLoad full = loadMediaIndex(f.root, f.cache, MediaIndexMode::RebuildCache, {});
        EXPECT_EQ(full.songs.size(), first.songs.size() + 1);
        expectOldCacheOnly();
        fs::remove(folder / "filler");
        ASSERT_EQ(::mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=256k"), 0);
    } else {
        fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    }
    writeMediaIndexCache(f.cache, f.root, scanStable(f.root, {}, false));
    expectOldCacheOnly();
}

}  // namespace
}  // namespace tamo::core
