#include "library_test_support.h"
#include "media_index_cache.h"
#include "media_index_load.h"
#include "media_index_scan.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::slurp;

struct CacheFixture {
    test::TempDir dir;
    std::string root;
    fs::path cache;

    CacheFixture() {
        dir.write("music/a/x.mp3");
        dir.write("music/a/x.cdg");
        dir.write("music/y.mp4");
        root = test::canonicalText(dir / "music");
        cache = dir / "data" / "media-index-cache.tsv";
        fs::create_directories(cache.parent_path());
    }

    std::string text(const std::vector<std::string>& dirs, const std::vector<std::string>& songs,
                     std::string_view magic = kMediaIndexMagicV5) const {
        std::string out(magic);
        out += "\nROOT\t" + escapeCacheField(root) + "\nDIRS\t" + std::to_string(dirs.size()) + "\n";
        for (const auto& line : dirs) out += "DIR\t" + line + "\n";
        out += "SONGS\t" + std::to_string(songs.size()) + "\n";
        for (const auto& line : songs) out += "SONG\t" + line + "\n";
        return out;
    }

    std::string valid() const {
        return text({".\t0\t2\t1", "a\t0\t2\t2"}, {"1\ta/x.mp3\tx\t\tmp3\ta/x.cdg", "2\ty.mp4\ty\t\tmp4\t"});
    }

    // Writes content as the cache and reads it back.
    bool read(const std::string& content, bool checkDisk = false, bool* upgrade = nullptr) {
        std::ofstream(cache, std::ios::binary | std::ios::trunc) << content;
        return readBack(checkDisk, upgrade);
    }

    bool readBack(bool checkDisk = false, bool* upgrade = nullptr) {
        stamps = {{"stale", 1, 1, 1}};
        songs = {Song{}};
        const bool ok = readMediaIndexCache(cache, root, stamps, songs, upgrade, {}, checkDisk);
        if (!ok) {
            EXPECT_TRUE(stamps.empty());
            EXPECT_TRUE(songs.empty());
        }
        return ok;
    }

    std::vector<DirectoryStamp> stamps;
    std::vector<Song> songs;
};

TEST(MediaIndexCache, ReadsAWellFormedFileIntoAbsolutePaths) {
    CacheFixture f;
    ASSERT_TRUE(f.read(f.valid(), true));
    ASSERT_EQ(f.songs.size(), 2u);
    EXPECT_EQ(f.songs[0], (Song{1, f.root + "/a/x.mp3", "x", "", "mp3", f.root + "/a/x.cdg"}));
    EXPECT_EQ(f.songs[1], (Song{2, f.root + "/y.mp4", "y", "", "mp4", ""}));
    EXPECT_EQ(f.stamps[1], (DirectoryStamp{"a", 0, 2, 2}));

    // Trailing blank lines are passed over, as is a missing final line end.
    EXPECT_TRUE(f.read(f.valid() + "\n\n"));
    std::string unterminated = f.valid();
    unterminated.pop_back();
    EXPECT_TRUE(f.read(unterminated));

    // A backslash before any other byte is dropped; one at the very end stays.
    EXPECT_TRUE(f.read(f.text({".\t-5\t0\t0", "a\t0\t0\t0"}, {"1\ta/x.mp3\t\\x\\q\tArtist\\\tmp3\t"})));
    EXPECT_EQ(f.songs[0].title, "xq");
    EXPECT_EQ(f.songs[0].artist, "Artist\\");
    EXPECT_EQ(f.stamps[0].timestamp, -5);

    // The widest numbers each field can hold.
    EXPECT_TRUE(f.read(f.text({".\t-9223372036854775808\t18446744073709551615\t18446744073709551615",
                               "a\t9223372036854775807\t0\t0"}, {})));
    EXPECT_EQ(f.stamps[0].timestamp, INT64_MIN);
    EXPECT_EQ(f.stamps[0].nameHash, UINT64_MAX);
    EXPECT_EQ(f.stamps[1].timestamp, INT64_MAX);
}

TEST(MediaIndexCache, RefusesEverythingItCannotTrust) {
    CacheFixture f;
    fs::create_directory_symlink(f.dir / "music" / "a", f.dir / "music" / "linked");
    const std::string songs = "SONGS\t0\n";
    const std::vector<std::pair<std::string, std::string>> refused{
        {"one byte", "T"},
        {"no directories", f.text({}, {})},
        {"wrong magic", "TAMO_MEDIA_INDEX_V6" + f.valid().substr(19)},
        {"another root", "TAMO_MEDIA_INDEX_V5\nROOT\t/elsewhere\nDIRS\t1\nDIR\t.\t0\t0\t0\n" + songs},
        {"skipped id", f.text({".\t0\t2\t1", "a\t0\t2\t2"}, {"1\ta/x.mp3\tx\t\tmp3\t", "3\ty.mp4\ty\t\tmp4\t"})},
        {"songs out of order", f.text({".\t0\t2\t1", "a\t0\t2\t2"}, {"1\ty.mp4\ty\t\tmp4\t", "2\ta/x.mp3\tx\t\tmp3\t"})},
        {"same song twice", f.text({".\t0\t2\t1", "a\t0\t2\t2"}, {"1\ty.mp4\ty\t\tmp4\t", "2\ty.mp4\ty\t\tmp4\t"})},
        {"trailing text", f.valid() + "\nextra\n"},
        {"missing song", f.text({".\t0\t0\t0"}, {"1\ty.mp4\ty\t\tmp4\t"}).substr(0, f.text({".\t0\t0\t0"}, {"1\ty.mp4\ty\t\tmp4\t"}).rfind("SONG\t"))},
        {"dot-dot key", f.text({".\t0\t0\t0", "a/../b\t0\t0\t0"}, {})},
        {"dot key element", f.text({".\t0\t0\t0", "./a\t0\t0\t0"}, {})},
        {"empty key element", f.text({".\t0\t0\t0", "a\t0\t0\t0", "a//b\t0\t0\t0"}, {})},
        {"absolute key", f.text({".\t0\t0\t0", "/tmp\t0\t0\t0"}, {})},
        {"parent not listed", f.text({".\t0\t0\t0", "a/b\t0\t0\t0"}, {})},
        {"duplicate key", f.text({".\t0\t0\t0", "a\t0\t0\t0", "a\t0\t0\t0"}, {})},
        {"folder gone from disk", f.text({".\t0\t0\t0", "gone\t0\t0\t0"}, {})},
        {"folder now a link", f.text({".\t0\t0\t0", "linked\t0\t0\t0"}, {})},
        {"four-field dir", f.text({".\t0\t0"}, {})},
        {"timestamp overflow", f.text({".\t9223372036854775808\t0\t0"}, {})},
        {"hash overflow", f.text({".\t0\t0\t18446744073709551616"}, {})},
        {"signed count", f.text({".\t0\t-1\t0"}, {})},
        {"forged count", "TAMO_MEDIA_INDEX_V5\nROOT\t" + f.root + "\nDIRS\t100000\nDIR\t.\t0\t0\t0\n" + songs},
        {"count over limit", "TAMO_MEDIA_INDEX_V5\nROOT\t" + f.root + "\nDIRS\t100001\n"},
        {"escape from root", f.text({".\t0\t0\t0"}, {"1\t../x.mp3\tx\t\tmp3\t"})},
        {"absolute media in V5", f.text({".\t0\t0\t0"}, {"1\t" + f.root + "/y.mp4\ty\t\tmp4\t"})},
        {"media folder not listed", f.text({".\t0\t0\t0"}, {"1\ta/x.mp3\tx\t\tmp3\t"})},
        {"not a media extension", f.text({".\t0\t0\t0"}, {"1\ty.txt\ty\t\ttxt\t"})},
        {"graphics of the wrong kind", f.text({".\t0\t0\t0"}, {"1\ty.mp4\ty\t\tmp4\ty.mp3"})},
        {"empty media", f.text({".\t0\t0\t0"}, {"1\t\ty\t\tmp4\t"})},
        {"six-field song", f.text({".\t0\t0\t0"}, {"1\ty.mp4\ty\t\tmp4"})},
        {"id zero", f.text({".\t0\t0\t0"}, {"0\ty.mp4\ty\t\tmp4\t"})},
        {"line too long", f.text({".\t0\t0\t0"}, {"1\ty.mp4\t" + std::string(0x100001, 't') + "\t\tmp4\t"})},
    };
    for (const auto& [name, content] : refused) EXPECT_FALSE(f.read(content)) << name;

    // Oversized files are refused by their size alone.
    std::ofstream(f.cache, std::ios::binary | std::ios::trunc) << f.valid();
    fs::resize_file(f.cache, 0x10000001);
    EXPECT_FALSE(f.readBack());
    fs::remove(f.cache);
    EXPECT_FALSE(f.readBack());
    fs::create_symlink(f.dir / "elsewhere.tsv", f.cache);
    std::ofstream(f.dir / "elsewhere.tsv") << f.valid();
    EXPECT_FALSE(f.readBack());
    fs::remove(f.cache);

    // A missing media file is seen only when the disk is checked.
    fs::remove(f.dir / "music" / "y.mp4");
    EXPECT_TRUE(f.read(f.valid(), false));
    EXPECT_FALSE(f.read(f.valid(), true));
}

TEST(MediaIndexCache, RoundTripsAScanWithAwkwardNames) {
    CacheFixture f;
    f.dir.write("music/Tab\there - Back\\slash.mp3");
    f.dir.write("music/Tab\there - Back\\slash.cdg");
    f.dir.write("music/Line\nbreak - Carriage\rreturn.mkv");
    f.dir.write("music/\xff\xfe broken - UTF-8.webm");
    f.dir.write("music/sub folder\\with\tstuff/deep.mov");
    const MediaIndexSnapshot snapshot = scanStable(f.root, {}, false);
    ASSERT_EQ(snapshot.songs.size(), 6u);

    writeMediaIndexCache(f.cache, f.root, snapshot);
    const std::string text = slurp(f.cache);
    EXPECT_EQ(text.rfind("TAMO_MEDIA_INDEX_V5\n", 0), 0u);
    EXPECT_NE(text.find("\tTab\\there - Back\\\\slash.mp3\tBack\\\\slash\tTab\\there\tmp3\tTab\\there - Back\\\\slash.cdg\n"),
              std::string::npos);
    EXPECT_NE(text.find("DIR\tsub folder\\\\with\\tstuff\t"), std::string::npos);
    EXPECT_TRUE(test::namesWith(f.cache.parent_path(), ".tmp.").empty());

    ASSERT_TRUE(f.readBack(true));
    EXPECT_EQ(f.songs, snapshot.songs);
    EXPECT_EQ(f.stamps, snapshot.stamps);
}

TEST(MediaIndexCache, WriterKeepsTheOldFileWhenASongLiesOutsideTheRoot) {
    CacheFixture f;
    MediaIndexSnapshot snapshot = scanStable(f.root, {}, false);
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
    EXPECT_TRUE(test::namesWith(f.cache.parent_path(), ".tmp.").empty());

    // The file system root gets no second separator.
    writeMediaIndexCache(f.cache, "/", MediaIndexSnapshot{{{".", 0, 0, 0}}, {Song{1, "/x.mp3", "x", "", "mp3", "/x.cdg"}}});
    EXPECT_NE(slurp(f.cache).find("SONG\t1\tx.mp3\tx\t\tmp3\tx.cdg\n"), std::string::npos);
}

TEST(MediaIndexCache, V4FilesLoadAndAVerifiedLoadRewritesThemAsV5) {
    CacheFixture f;
    const std::string v4 = f.text({".\t0\t2\t1", "a\t0\t2\t2"},
                                  {"1\t" + f.root + "/a/x.mp3\tx\t\tmp3\t" + f.root + "/a/x.cdg",
                                   "2\t" + f.root + "/y.mp4\ty\t\tmp4\t"},
                                  kMediaIndexMagicV4);
    bool upgrade = false;
    ASSERT_TRUE(f.read(v4, true, &upgrade));
    EXPECT_TRUE(upgrade);
    EXPECT_EQ(f.songs[0].cdgPath, f.root + "/a/x.cdg");

    for (const std::string& outside : {std::string("/elsewhere/y.mp4"), f.root + "/../music/y.mp4", f.root + "/./y.mp4",
                                       std::string("y.mp4")}) {
        EXPECT_FALSE(f.read(f.text({".\t0\t0\t0"}, {"1\t" + outside + "\ty\t\tmp4\t"}, kMediaIndexMagicV4))) << outside;
    }

    // The stamps must match the disk for a verified load to keep the file.
    MediaIndexSnapshot scanned = scanStable(f.root, {}, false);
    std::vector<std::string> dirs;
    for (const auto& stamp : scanned.stamps) {
        dirs.push_back(stamp.key + "\t0\t" + std::to_string(stamp.nameCount) + "\t" + std::to_string(stamp.nameHash));
    }
    const std::string matching = f.text(dirs, {"1\t" + f.root + "/a/x.mp3\tx\t\tmp3\t" + f.root + "/a/x.cdg",
                                               "2\t" + f.root + "/y.mp4\ty\t\tmp4\t"},
                                        kMediaIndexMagicV4);
    std::ofstream(f.cache, std::ios::binary | std::ios::trunc) << matching;
    MediaIndexLoad trusted = loadMediaIndex(f.root, f.cache, MediaIndexMode::TrustCache, {});
    EXPECT_FALSE(trusted.rebuilt);
    EXPECT_EQ(slurp(f.cache), matching);

    MediaIndexLoad verified = loadMediaIndex(f.root, f.cache, MediaIndexMode::VerifyCache, {});
    EXPECT_FALSE(verified.rebuilt);
    EXPECT_EQ(verified.songs, trusted.songs);
    EXPECT_EQ(slurp(f.cache).rfind("TAMO_MEDIA_INDEX_V5\n", 0), 0u);
    upgrade = true;
    ASSERT_TRUE(f.readBack(true, &upgrade));
    EXPECT_FALSE(upgrade);
    EXPECT_EQ(f.songs, verified.songs);
}

// A small file system of its own, full or read-only on demand. Needs the
// privilege to mount; the tests skip without it.
struct SmallDisk {
    test::TempDir dir;
    fs::path mountPoint = dir / "disk";
    std::optional<test::ScopedMount> mount;

    bool mounted() {
        fs::create_directory(mountPoint);
        mount.emplace("tmpfs", mountPoint, "tmpfs", 0, "size=256k");
        return mount->mounted();
    }
    bool remountReadOnly() {
        return ::mount("tmpfs", mountPoint.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=256k") == 0;
    }
    void fill() {
        std::ofstream filler(mountPoint / "filler", std::ios::binary);
        const std::string block(4096, 'f');
        while (filler.write(block.data(), static_cast<std::streamsize>(block.size())) && filler.flush()) {
        }
    }
};

TEST(MediaIndexCache, AFailedWriteLeavesTheOldCacheWholeAndNoTemporary) {
    CacheFixture f;
    SmallDisk disk;
    if (!disk.mounted()) GTEST_SKIP() << "mounting a small file system needs privileges this run does not have";
    const fs::path cache = disk.mountPoint / "media-index-cache.tsv";

    const MediaIndexLoad first = loadMediaIndex(f.root, cache, MediaIndexMode::RebuildCache, {});
    const std::string old = slurp(cache);
    ASSERT_FALSE(old.empty());

    // A snapshot larger than the disk.
    MediaIndexSnapshot large = scanStable(f.root, {}, false);
    for (int i = 0; i < 200; ++i) {
        large.songs.push_back(Song{0, f.root + "/z" + std::to_string(1000 + i) + ".mp3", std::string(2000, 't'), "", "mp3", ""});
    }
    writeMediaIndexCache(cache, f.root, large);
    EXPECT_EQ(slurp(cache), old);
    EXPECT_TRUE(test::namesWith(disk.mountPoint, ".tmp.").empty());

    // A full disk: the load still answers with a fresh scan.
    f.dir.write("music/new.mp3");
    disk.fill();
    const MediaIndexLoad full = loadMediaIndex(f.root, cache, MediaIndexMode::RebuildCache, {});
    EXPECT_TRUE(full.rebuilt);
    EXPECT_EQ(full.songs.size(), first.songs.size() + 1);
    EXPECT_EQ(slurp(cache), old);
    EXPECT_TRUE(test::namesWith(disk.mountPoint, ".tmp.").empty());

    fs::remove(disk.mountPoint / "filler");
    ASSERT_TRUE(disk.remountReadOnly());
    writeMediaIndexCache(cache, f.root, scanStable(f.root, {}, false));
    EXPECT_EQ(slurp(cache), old);
    EXPECT_TRUE(test::namesWith(disk.mountPoint, ".tmp.").empty());
}

TEST(MediaIndexCache, AReadOnlyFolderKeepsTheOldCache) {
    if (::geteuid() == 0) GTEST_SKIP() << "folder permissions don't stop root; the small-disk test covers it";
    CacheFixture f;
    const MediaIndexSnapshot snapshot = scanStable(f.root, {}, false);
    writeMediaIndexCache(f.cache, f.root, snapshot);
    const std::string old = slurp(f.cache);
    f.dir.write("music/new.mp3");
    fs::permissions(f.cache.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
    writeMediaIndexCache(f.cache, f.root, scanStable(f.root, {}, false));
    fs::permissions(f.cache.parent_path(), fs::perms::owner_all);
    EXPECT_EQ(slurp(f.cache), old);
    EXPECT_TRUE(test::namesWith(f.cache.parent_path(), ".tmp.").empty());
}

}  // namespace
}  // namespace tamo::core
