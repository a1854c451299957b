#include "build_song.h"
#include "karaoke_graphics.h"
#include "temp_dir.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;

std::string real(const fs::path& p) { return fs::canonical(p).string(); }

TEST(KaraokeGraphics, PrefersLowerThenUpperThenFirstOtherSpelling) {
    test::TempDir dir;
    const auto media = dir.write("a.mp3", "x");
    EXPECT_EQ(findKaraokeGraphics(media.string()), "");

    dir.write("a.cDG");
    dir.write("a.Cdg");
    // Path order: "a.Cdg" sorts before "a.cDG".
    EXPECT_EQ(findKaraokeGraphics(media.string()), real(dir / "a.Cdg"));
    dir.write("a.CDG");
    EXPECT_EQ(findKaraokeGraphics(media.string()), real(dir / "a.CDG"));
    dir.write("a.cdg");
    EXPECT_EQ(findKaraokeGraphics(media.string()), real(dir / "a.cdg"));
}

TEST(KaraokeGraphics, StemsCompareCaseSensitivelyAndFoldersAreNotGraphics) {
    test::TempDir dir;
    const auto media = dir.write("Song.mp3", "x");
    dir.write("song.Cdg");
    fs::create_directory(dir / "Song.cDg");
    EXPECT_EQ(findKaraokeGraphics(media.string()), "");
    EXPECT_EQ(findKaraokeGraphics((dir / "missing" / "x.mp3").string()), "");
}

TEST(KaraokeGraphics, ResolveUsesTheStoredPathOnlyWhileItExists) {
    test::TempDir dir;
    const auto media = dir.write("b.mp3", "x");
    const auto upper = dir.write("b.CDG");
    Song song;
    song.path = media.string();
    song.cdgPath = (dir / "b.cdg").string();  // stale: never written
    EXPECT_EQ(resolveSongGraphics(song), real(upper));
    song.cdgPath = upper.string();
    EXPECT_EQ(resolveSongGraphics(song), upper.string());
}

TEST(BuildSong, FillsFieldsFromTheFileName) {
    test::TempDir dir;
    const auto media = dir.write("SC-1 - Queen - Bohemian Rhapsody.MP3", "x");
    dir.write("SC-1 - Queen - Bohemian Rhapsody.cdg");
    const Song song = buildSong(7, media.string(), true);
    EXPECT_EQ(song.id, 7);
    EXPECT_EQ(song.path, media.string());
    EXPECT_EQ(song.artist, "Queen");
    EXPECT_EQ(song.title, "Bohemian Rhapsody");
    EXPECT_EQ(song.format, "mp3");
    EXPECT_EQ(song.cdgPath, real(dir / "SC-1 - Queen - Bohemian Rhapsody.cdg"));
    EXPECT_EQ(buildSong(1, media.string(), false).cdgPath, "");

    const Song fast = buildFastSong("/m/./x/Artist - Song.mp4");
    EXPECT_EQ(fast.path, "/m/x/Artist - Song.mp4");
    EXPECT_EQ(fast.cdgPath, "/m/x/Artist - Song.cdg");
    EXPECT_EQ(fast.format, "mp4");
}

}  // namespace
}  // namespace tamo::core
