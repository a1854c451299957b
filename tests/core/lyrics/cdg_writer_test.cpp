#include "bitmap_font.h"
#include "cdg_decoder.h"
#include "cdg_writer.h"
#include "temp_dir.h"
#include "timed_lyrics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace tamo::cdg {
namespace {

constexpr int width = 300;
using Rgba = std::array<std::uint8_t, 4>;

Rgba rgbaAt(const core::CdgDecoder& decoder, int x, int y) {
    const auto at = decoder.frame().subspan(static_cast<std::size_t>(y * width + x) * 4, 4);
    return {at[0], at[1], at[2], at[3]};
}

// The colour shown on the first lit pixel of a glyph.
Rgba inkOf(const core::CdgDecoder& decoder, const PlacedGlyph& glyph) {
    for (int y = 0; y < cellHeight; ++y)
        for (int x = 0; x < cellWidth; ++x)
            if (cellPixel(glyph.character, x, y)) return rgbaAt(decoder, glyph.tileColumn * 6 + x, glyph.tileRow * 12 + y);
    return {};
}

::testing::AssertionResult cellShows(const core::CdgDecoder& decoder, const PlacedGlyph& glyph, std::uint8_t colour) {
    for (int y = 0; y < cellHeight; ++y) {
        for (int x = 0; x < cellWidth; ++x) {
            const std::uint8_t expected = cellPixel(glyph.character, x, y) ? colour : backgroundColour;
            const std::uint8_t actual =
                decoder.pixels()[static_cast<std::size_t>((glyph.tileRow * 12 + y) * width + glyph.tileColumn * 6 + x)];
            if (actual != expected)
                return ::testing::AssertionFailure()
                       << "'" << glyph.character << "' at tile " << glyph.tileColumn << "," << glyph.tileRow
                       << ": pixel " << x << "," << y << " is " << int(actual) << ", expected " << int(expected)
                       << " at packet " << decoder.position() - 1;
        }
    }
    return ::testing::AssertionSuccess();
}

core::CdgDecoder loadStream(const test::TempDir& dir, const CdgStream& stream) {
    core::CdgDecoder decoder;
    const auto path = dir.write("written.cdg", std::string(stream.bytes.begin(), stream.bytes.end()));
    EXPECT_TRUE(decoder.load(path.string()));
    return decoder;
}

// Plays the written file forward and checks every glyph where and when the
// writer says it put it: in the lyric colour from the packet that finishes
// drawing it, in the sung colour from the packet that lights it, until the
// packet that clears or covers it.
void expectGlyphsShowAsPlaced(const test::TempDir& dir, const CdgStream& stream) {
    struct Check {
        std::size_t packet;
        std::size_t glyph;
        std::uint8_t colour;
    };
    std::vector<Check> checks;
    for (std::size_t g = 0; g < stream.glyphs.size(); ++g) {
        const PlacedGlyph& glyph = stream.glyphs[g];
        ASSERT_NE(glyph.shownPacket, noPacket);
        const std::size_t until = glyph.hiddenPacket == noPacket ? stream.packetCount() : glyph.hiddenPacket;
        ASSERT_LT(glyph.shownPacket, until);
        checks.push_back({glyph.shownPacket, g, glyph.colour});
        if (glyph.sungPacket == noPacket) {
            checks.push_back({until - 1, g, glyph.colour});
            continue;
        }
        ASSERT_GT(glyph.sungPacket, glyph.shownPacket) << "lit before it was drawn";
        // Lighting never starts before the asked time.
        const auto asked = static_cast<std::size_t>(std::llround(glyph.singAt * 300));
        if (asked > glyph.shownPacket) checks.push_back({asked - 1, g, glyph.colour});
        if (glyph.sungPacket < until) {
            checks.push_back({glyph.sungPacket, g, glyph.colourWhenSung});
            checks.push_back({until - 1, g, glyph.colourWhenSung});
        }
    }
    std::stable_sort(checks.begin(), checks.end(), [](const Check& a, const Check& b) { return a.packet < b.packet; });

    core::CdgDecoder decoder = loadStream(dir, stream);
    int failures = 0;
    for (const Check& check : checks) {
        ASSERT_TRUE(decoder.renderAt((static_cast<double>(check.packet) + 0.5) / 300));
        const auto result = cellShows(decoder, stream.glyphs[check.glyph], check.colour);
        EXPECT_TRUE(result);
        if (!result && ++failures > 5) return;
    }
}

std::string textOf(const std::vector<PlacedGlyph>& glyphs, int tileRow, std::size_t packet) {
    std::vector<PlacedGlyph> row;
    for (const PlacedGlyph& g : glyphs)
        if (g.tileRow == tileRow && g.shownPacket <= packet && (g.hiddenPacket == noPacket || packet < g.hiddenPacket))
            row.push_back(g);
    std::sort(row.begin(), row.end(), [](const auto& a, const auto& b) { return a.tileColumn < b.tileColumn; });
    std::string text;
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (i > 0 && row[i].tileColumn > row[i - 1].tileColumn + 2) text += ' ';
        text += row[i].character;
    }
    return text;
}

TEST(TimedLyrics, ReadsTimesAndLineEndsAndNamesTheBadLine) {
    std::vector<LyricLine> lines;
    std::string error;
    ASSERT_TRUE(parseTimedLyrics("# a comment\r\n0.5\tHello world\r\n1:02.25   Second line here\n\n  70\t\n71.0\tLast",
                                 lines, error))
        << error;
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].words[0].text, "Hello");
    EXPECT_DOUBLE_EQ(lines[0].words[0].start, 0.5);
    // Capped at one second plus a quarter second per character of the line.
    EXPECT_DOUBLE_EQ(lines[0].words[1].end, 0.5 + 1.0 + 0.25 * 11);
    EXPECT_DOUBLE_EQ(lines[1].words[0].start, 62.25);
    EXPECT_DOUBLE_EQ(lines[1].words[2].end, 67.25);
    EXPECT_DOUBLE_EQ(lines[2].words[0].end, 73.0);
    // The next line's time ends a line when it comes first; so does a time
    // with no text.
    ASSERT_TRUE(parseTimedLyrics("10\tla la la la la la\n11\tnext\n11.5\n", lines, error));
    EXPECT_DOUBLE_EQ(lines[0].words.back().end, 11.0);
    EXPECT_DOUBLE_EQ(lines[1].words.back().end, 11.5);

    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"abc\tword", "line 1: \"abc\" is not a time"},
        {"5\tA\n\n4\tB", "line 3: time 4 is earlier"},
        {"-1\tA", "line 1: \"-1\" is not a time"},
        {"1:75\tA", "line 1: \"1:75\" is not a time"},
        {"1e3\tA", "line 1: \"1e3\""},
        {"", "no timed lyric lines"},
        {"# only a comment\n5\n", "no timed lyric lines"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(parseTimedLyrics(c.text, lines, error)) << c.text;
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
    }
}

TEST(TimedLyrics, WordsShareTheLineByLength) {
    const LyricLine line = timeLyricLine("  a bcd\t ef ", 10.0, 16.0);
    ASSERT_EQ(line.words.size(), 3u);
    EXPECT_EQ(line.words[1].text, "bcd");
    EXPECT_DOUBLE_EQ(line.words[1].start, 11.0);
    EXPECT_DOUBLE_EQ(line.words[2].start, 14.0);
    EXPECT_DOUBLE_EQ(line.words[2].end, 16.0);
    EXPECT_TRUE(timeLyricLine(" \t ", 1.0, 2.0).words.empty());
}

TEST(BitmapFont, DisplayTextKeepsPrintableAsciiOnly) {
    EXPECT_EQ(displayText("Caf\xc3\xa9 \xe2\x99\xaa!\tx\x01"), "Caf? ?! x?");
    EXPECT_EQ(displayText("\xff\xfe"), "??");
}

TEST(CdgWriter, ShowsTitleThenRollsWrapsAndBreaksLinesLitOnTime) {
    test::TempDir dir;
    std::vector<LyricLine> lines;
    double t = 3.0;
    for (const char* text : {"One little line", "Two little lines", "Three little lines", "Four little lines",
                             "Five little lines", "Six, and this one is too long for a single row"}) {
        lines.push_back(timeLyricLine(text, t, t + 2.5));
        t += 2.5;
    }
    lines.push_back(timeLyricLine("Supercalifragilisticexpialidocious!", 60.0, 63.0));
    lines.push_back(timeLyricLine("After the break", 63.0, 65.0));
    CdgWriterOptions options;
    options.title = "Little Lines";
    options.artist = "The Testers";
    const CdgStream stream = writeCdg(lines, options);
    expectGlyphsShowAsPlaced(dir, stream);

    // The title shows at once, is never lit, and gives way to the lyrics,
    // which come two seconds ahead of the first line at three and each light
    // within a few packets of its share of its word's time.
    std::size_t firstShown = noPacket, titleHidden = 0;
    int titleGlyphs = 0;
    for (const PlacedGlyph& g : stream.glyphs) {
        if (g.colour == lyricColour) {
            firstShown = std::min(firstShown, g.shownPacket);
            EXPECT_GE(static_cast<double>(g.sungPacket), g.singAt * 300 - 1) << g.character;
            EXPECT_LE(static_cast<double>(g.sungPacket), g.singAt * 300 + 15) << g.character;
            continue;
        }
        ++titleGlyphs;
        EXPECT_TRUE(g.sungPacket == noPacket && g.shownPacket < 300) << g.character;
        titleHidden = std::max(titleHidden, g.hiddenPacket);
    }
    EXPECT_EQ(titleGlyphs, 11 + 10);
    EXPECT_LE(titleHidden, firstShown);
    EXPECT_LE(firstShown, 400u);

    // The fifth line takes the first line's row once the first is sung; the
    // sixth wraps at a word and its second half takes the third row.
    EXPECT_EQ(textOf(stream.glyphs, 3, 4 * 300), "One little line");
    EXPECT_EQ(textOf(stream.glyphs, 3, 15 * 300), "Five little lines");
    EXPECT_EQ(textOf(stream.glyphs, 6, 17 * 300), "Six, and this one is too");
    EXPECT_EQ(textOf(stream.glyphs, 9, 17 * 300), "long for a single row");
    // After the 40-second break: a fresh screen, the long word cut to fit.
    EXPECT_EQ(textOf(stream.glyphs, 3, 59 * 300), "Supercalifragilisticexpi");
    EXPECT_EQ(textOf(stream.glyphs, 6, 59 * 300), "alidocious!");
    EXPECT_EQ(textOf(stream.glyphs, 9, 59 * 300), "After the break");
    for (const PlacedGlyph& g : stream.glyphs) {
        if (g.singAt < 30.0) {
            EXPECT_LE(g.hiddenPacket, 20u * 300) << "first verse still up during the break";
        }
    }

    // White on dark blue, turning amber once sung.
    core::CdgDecoder decoder = loadStream(dir, stream);
    ASSERT_TRUE(decoder.renderAt(4.0));
    const auto firstSungAfter = [&](double time) {
        return *std::ranges::find_if(stream.glyphs, [&](const PlacedGlyph& g) { return g.singAt > time; });
    };
    EXPECT_EQ(rgbaAt(decoder, 0, 0), (Rgba{0, 17, 102, 255}));
    EXPECT_EQ(inkOf(decoder, firstSungAfter(0.0)), (Rgba{255, 187, 0, 255}));
    EXPECT_EQ(inkOf(decoder, firstSungAfter(5.0)), (Rgba{255, 255, 255, 255}));

    // Cleared after the last word, and run on to the length asked for.
    ASSERT_TRUE(decoder.renderAt(1e9));
    EXPECT_TRUE(std::ranges::all_of(decoder.pixels(), [](std::uint8_t p) { return p == backgroundColour; }));
    options.duration = 200.0;
    EXPECT_EQ(writeCdg(lines, options).packetCount(), 200u * 300);
}

TEST(CdgWriter, RandomLyricsAlwaysShowWhatWasPlaced) {
    test::TempDir dir;
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto uniform = [&](double low, double high) {
            return std::uniform_real_distribution<double>(low, high)(random);
        };
        const std::string alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.,!?'-()\xc3\xa9";
        std::vector<LyricLine> lines(5 + random() % 25);
        double t = uniform(0.0, 3.0);
        for (LyricLine& line : lines) {
            for (auto words = 1 + random() % 8; words > 0; --words) {
                std::string word(1 + random() % (random() % 10 == 0 ? 30 : 8), ' ');
                for (char& c : word) c = alphabet[random() % alphabet.size()];
                line.words.push_back({word, t, t + uniform(0.02, 0.8)});
                t = line.words.back().end;
            }
            t += random() % 6 == 0 ? uniform(3.0, 12.0) : uniform(0.0, 0.5);
        }
        CdgWriterOptions options;
        options.rowsOnScreen = 1 + static_cast<int>(random() % 5);
        if (seed % 2 == 0) options.title = "Song " + std::to_string(seed);
        const CdgStream stream = writeCdg(lines, options);
        expectGlyphsShowAsPlaced(dir, stream);
        if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
}

}  // namespace
}  // namespace tamo::cdg
