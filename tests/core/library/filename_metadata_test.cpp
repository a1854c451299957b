#include "filename_metadata.h"

#include <gtest/gtest.h>

namespace tamo::core {
namespace {

struct Case {
    const char* stem;
    const char* artist;
    const char* title;
};

TEST(FilenameMetadata, ParsesStemsByTheSeparatorChain) {
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
        EXPECT_EQ(parsed.artist, c.artist) << '"' << c.stem << '"';
        EXPECT_EQ(parsed.title, c.title) << '"' << c.stem << '"';
    }
}

TEST(FilenameMetadata, SplitKeepsEmptyPiecesAndTheTail) {
    EXPECT_EQ(splitAndTrim("a - b -  - ", " - "), (std::vector<std::string>{"a", "b", "", ""}));
    EXPECT_EQ(splitAndTrim("abc", " - "), (std::vector<std::string>{"abc"}));
    EXPECT_TRUE(metadataFromParts({"only"}, " - ").title.empty());
    EXPECT_TRUE(metadataFromParts({"", "Title"}, " - ").title.empty());
}

}  // namespace
}  // namespace tamo::core
