#include "build_song.h"
#include "filename_metadata.h"
#include "karaoke_graphics.h"
#include "temp_dir.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;

std::string real(const fs::path& p) { return fs::canonical(p).string(); }

TEST(FilenameMetadata, ParsesStemsByTheSeparatorChain) {
    struct Case {
        const char* stem;
        const char* artist;
        const char* title;
    };
    const Case cases[] = {
        {"Artist - Title", "Artist", "Title"},
        {"SC-1234 - Artist - Title", "Artist", "Title"},
        {"1234 - Artist - Title", "Artist", "Title"},
        {"12.34 - Artist - Title", "Artist", "Title"},
        {"ABC_01 - Artist - Title", "Artist", "Title"},
        {"SC1234 - Artist - Title", "SC1234", "Artist - Title"},
        {"Artist - Part One - Part Two", "Artist", "Part One - Part Two"},
        {"A -  - B - C", "A", "B - C"},
        {"Artist -- Title", "Artist", "Title"},
        {"Artist / Title", "Artist", "Title"},
        {"Artist | Title", "Artist", "Title"},
        {"X | Y - Z", "X | Y", "Z"},
        {"Title by Artist", "Artist", "Title"},
        {"Title BY Artist", "Artist", "Title"},
        {"Stand by Me", "Me", "Stand"},
        {"by Artist", "", "by Artist"},
        {"Artist_Title", "Artist", "Title"},
        {"A_B_C", "", "A_B_C"},
        {"Re-Mix", "Re", "Mix"},
        {" - Title", "", "- Title"},
        {"  Lonely  ", "", "Lonely"},
        {"", "", ""},
        {" \t ", "", ""},
        {"Caf\xc3\xa9 - Ol\xc3\xa9", "Caf\xc3\xa9", "Ol\xc3\xa9"},
        {"1234567890123456789 - Artist - Title", "1234567890123456789", "Artist - Title"},
    };
    for (const Case& c : cases) {
        const FilenameMetadata parsed = parseFilenameMetadata(c.stem);
        EXPECT_EQ(parsed.artist + "|" + parsed.title, std::string(c.artist) + "|" + c.title) << '"' << c.stem << '"';
    }
}

TEST(FilenameMetadata, SplitKeepsEmptyPiecesAndTheTail) {
    EXPECT_EQ(splitAndTrim("a - b -  - ", " - "), (std::vector<std::string>{"a", "b", "", ""}));
    EXPECT_EQ(splitAndTrim("abc", " - "), (std::vector<std::string>{"abc"}));
    EXPECT_TRUE(metadataFromParts({"only"}, " - ").title.empty());
}

// Which of ".cdg", ".CDG" and other spellings wins is shown by the index
// scan's pairing test; here the cases around it.
TEST(KaraokeGraphics, FindsOnlyFilesOfTheSameStemAndPrefersTheStoredPath) {
    test::TempDir dir;
    const std::string media = dir.write("a.mp3").string();
    // Stems compare case-sensitively, and a folder is no graphics file.
    dir.write("A.cdg");
    fs::create_directory(dir / "a.CdG");
    EXPECT_EQ(findKaraokeGraphics(media), "");
    EXPECT_EQ(findKaraokeGraphics((dir / "missing" / "x.mp3").string()), "");
    dir.write("a.Cdg");
    dir.write("a.CDG");
    EXPECT_EQ(findKaraokeGraphics(media), real(dir / "a.CDG"));

    // The stored path counts only while it names a file.
    Song song{1, media, "a", "", "mp3", (dir / "old" / "a.cdg").string()};
    EXPECT_EQ(resolveSongGraphics(song), real(dir / "a.CDG"));
    song.cdgPath = (dir / "a.Cdg").string();
    EXPECT_EQ(resolveSongGraphics(song), song.cdgPath);
}

TEST(BuildSong, FillsFieldsFromTheFileName) {
    test::TempDir dir;
    const auto media = dir.write("SC-1 - Queen - Bohemian Rhapsody.MP3");
    dir.write("SC-1 - Queen - Bohemian Rhapsody.cdg");
    EXPECT_EQ(buildSong(7, media.string(), true), (Song{7, media.string(), "Bohemian Rhapsody", "Queen", "mp3",
                                                         real(dir / "SC-1 - Queen - Bohemian Rhapsody.cdg")}));
    EXPECT_EQ(buildSong(1, media.string(), false).cdgPath, "");
    EXPECT_EQ(buildFastSong("/m/./x/Artist - Song.mp4"),
              (Song{0, "/m/x/Artist - Song.mp4", "Song", "Artist", "mp4", "/m/x/Artist - Song.cdg"}));
}

}  // namespace
}  // namespace tamo::core
