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

std::array<std::uint8_t, 4> rgbaAt(const core::CdgDecoder& decoder, int x, int y) {
    const auto frame = decoder.frame();
    const std::size_t at = static_cast<std::size_t>(y * width + x) * 4;
    return {frame[at], frame[at + 1], frame[at + 2], frame[at + 3]};
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
        if (glyph.sungPacket == noPacket) {
            checks.push_back({glyph.shownPacket, g, glyph.colour});
            checks.push_back({until - 1, g, glyph.colour});
            continue;
        }
        ASSERT_GT(glyph.sungPacket, glyph.shownPacket) << "lit before it was drawn";
        checks.push_back({glyph.shownPacket, g, glyph.colour});
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

TEST(TimedLyrics, ReadsTimesTextAndLineEnds) {
    std::vector<LyricLine> lines;
    std::string error;
    ASSERT_TRUE(parseTimedLyrics("# a comment\r\n"
                                 "0.5\tHello world\r\n"
                                 "1:02.25   Second line here\n"
                                 "\n"
                                 "  70\t\n"
                                 "71.0\tLast",
                                 lines, error))
        << error;
    ASSERT_EQ(lines.size(), 3u);
    ASSERT_EQ(lines[0].words.size(), 2u);
    EXPECT_EQ(lines[0].words[0].text, "Hello");
    EXPECT_DOUBLE_EQ(lines[0].words[0].start, 0.5);
    // Capped at one second plus a quarter second per character of the line.
    EXPECT_DOUBLE_EQ(lines[0].words[1].end, 0.5 + 1.0 + 0.25 * 11);
    EXPECT_DOUBLE_EQ(lines[1].words[0].start, 62.25);
    EXPECT_DOUBLE_EQ(lines[1].words[2].end, 67.25);
    EXPECT_EQ(lines[2].words[0].text, "Last");
    EXPECT_DOUBLE_EQ(lines[2].words[0].end, 73.0);

    // The next line's time ends a line when it comes first; so does a time
    // with no text.
    ASSERT_TRUE(parseTimedLyrics("10\tla la la la la la\n11\tnext\n11.5\n", lines, error));
    EXPECT_DOUBLE_EQ(lines[0].words.back().end, 11.0);
    EXPECT_DOUBLE_EQ(lines[1].words.back().end, 11.5);
}

TEST(TimedLyrics, RejectsMalformedInputNamingTheLine) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"abc\tword", "line 1: \"abc\" is not a time"},
        {"5\tA\n\n4\tB", "line 3: time 4 is earlier"},
        {"-1\tA", "line 1: \"-1\" is not a time"},
        {"1:75\tA", "line 1: \"1:75\" is not a time"},
        {"1e3\tA", "line 1: \"1e3\""},
        {"1.2.3\tA", "line 1: \"1.2.3\""},
        {"", "no timed lyric lines"},
        {"# only a comment\n5\n", "no timed lyric lines"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<LyricLine> lines;
        std::string error;
        EXPECT_FALSE(parseTimedLyrics(c.text, lines, error));
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
    }
}

TEST(LyricLineTiming, SharesTheLineBetweenWordsByLength) {
    const LyricLine line = timeLyricLine("  a bcd\t ef ", 10.0, 16.0);
    ASSERT_EQ(line.words.size(), 3u);
    EXPECT_EQ(line.words[1].text, "bcd");
    EXPECT_DOUBLE_EQ(line.words[0].start, 10.0);
    EXPECT_DOUBLE_EQ(line.words[1].start, 11.0);
    EXPECT_DOUBLE_EQ(line.words[2].start, 14.0);
    EXPECT_DOUBLE_EQ(line.words[2].end, 16.0);
    EXPECT_TRUE(timeLyricLine(" \t ", 1.0, 2.0).words.empty());
}

TEST(BitmapFont, DisplayTextKeepsPrintableAsciiOnly) {
    EXPECT_EQ(displayText("Caf\xc3\xa9 \xe2\x99\xaa!\tx\x01"), "Caf? ?! x?");
    EXPECT_EQ(displayText("\xff\xfe"), "??");
}

TEST(CdgWriter, DrawsLinesCentredAndLightsThemOnTime) {
    test::TempDir dir;
    const std::vector<LyricLine> lines = {timeLyricLine("Hello world", 1.0, 3.0),
                                          timeLyricLine("Second line", 3.0, 5.0)};
    const CdgStream stream = writeCdg(lines);
    ASSERT_EQ(stream.glyphs.size(), 20u);
    expectGlyphsShowAsPlaced(dir, stream);

    // Four rows fit a screen: two tiles high with a tile between, centred in
    // the 16 rows of the safe area from row 3; "Hello world" is 22 tiles wide.
    const PlacedGlyph& h = stream.glyphs[0];
    EXPECT_EQ(h.character, 'H');
    EXPECT_EQ(h.tileRow, 3);
    EXPECT_EQ(h.tileColumn, 1 + (48 - 22) / 2);
    EXPECT_EQ(stream.glyphs[5].character, 'w');
    EXPECT_EQ(stream.glyphs[5].tileColumn, h.tileColumn + 12);
    EXPECT_EQ(stream.glyphs[10].tileRow, 6);
    EXPECT_EQ(textOf(stream.glyphs, 3, 300), "Hello world");
    EXPECT_EQ(textOf(stream.glyphs, 6, 300), "Second line");

    // On screen before it is sung, and each character lit within a few
    // packets of its share of the word's time.
    for (const PlacedGlyph& g : stream.glyphs) {
        EXPECT_LE(g.shownPacket, 300u);
        EXPECT_GE(static_cast<double>(g.sungPacket), g.singAt * 300 - 1) << g.character;
        EXPECT_LE(static_cast<double>(g.sungPacket), g.singAt * 300 + 15) << g.character;
    }
    EXPECT_NEAR(stream.glyphs[1].singAt, 1.0 + 2.0 / 10, 1e-9);  // 'e': a tenth of the line's ten letters

    core::CdgDecoder decoder = loadStream(dir, stream);
    ASSERT_TRUE(decoder.renderAt(2.0));
    const int x = h.tileColumn * 6, y = h.tileRow * 12;
    EXPECT_EQ(rgbaAt(decoder, 0, 0), (std::array<std::uint8_t, 4>{0, 17, 102, 255}));  // dark blue
    EXPECT_EQ(rgbaAt(decoder, x + 2, y + 4), (std::array<std::uint8_t, 4>{255, 187, 0, 255}));  // 'H' sung: amber
    const PlacedGlyph& last = stream.glyphs[19];
    ASSERT_TRUE(cellShows(decoder, last, lyricColour));
    const int lx = last.tileColumn * 6, ly = last.tileRow * 12;
    for (int dy = 0; dy < 24; ++dy) {
        for (int dx = 0; dx < 12; ++dx) {
            if (cellPixel(last.character, dx, dy)) {
                ASSERT_EQ(rgbaAt(decoder, lx + dx, ly + dy), (std::array<std::uint8_t, 4>{255, 255, 255, 255}));
            }
        }
    }

    // A second after the last word the screen is cleared, and the stream
    // runs on for a moment after its last packet.
    ASSERT_TRUE(decoder.renderAt(1e9));
    EXPECT_TRUE(std::ranges::all_of(decoder.pixels(), [](std::uint8_t p) { return p == backgroundColour; }));
    EXPECT_GE(decoder.duration(), 6.0);
    CdgWriterOptions longer;
    longer.duration = 200.0;
    EXPECT_EQ(writeCdg(lines, longer).packetCount(), 200u * 300);
}

TEST(CdgWriter, WrapsLongLinesRollsRowsAndStartsFreshScreensAfterBreaks) {
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

    std::size_t firstLyricShown = noPacket, firstLyricSung = noPacket;
    for (const PlacedGlyph& g : stream.glyphs) {
        if (g.colour != lyricColour) continue;
        firstLyricShown = std::min(firstLyricShown, g.shownPacket);
        firstLyricSung = std::min(firstLyricSung, g.sungPacket);
    }
    int titleGlyphs = 0;
    for (const PlacedGlyph& g : stream.glyphs) {
        if (g.colour == lyricColour) continue;
        ++titleGlyphs;
        EXPECT_EQ(g.sungPacket, noPacket);
        EXPECT_LT(g.shownPacket, 300u);
        EXPECT_LE(g.hiddenPacket, firstLyricShown);  // the title gives way to the lyrics
    }
    EXPECT_EQ(titleGlyphs, 11 + 10);
    // Two seconds ahead of the first line at three, and lit on time.
    EXPECT_LE(firstLyricShown, 400u);
    EXPECT_GE(firstLyricSung, 900u);
    EXPECT_LE(firstLyricSung, 910u);

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
        std::vector<LyricLine> lines;
        double t = uniform(0.0, 3.0);
        const int lineCount = 5 + static_cast<int>(random() % 25);
        for (int l = 0; l < lineCount; ++l) {
            LyricLine line;
            const int words = 1 + static_cast<int>(random() % 8);
            for (int w = 0; w < words; ++w) {
                std::string word;
                const int length = 1 + static_cast<int>(random() % (random() % 10 == 0 ? 30 : 8));
                for (int c = 0; c < length; ++c) word += alphabet[random() % alphabet.size()];
                const double start = t;
                t += uniform(0.02, 0.8);
                line.words.push_back({word, start, t});
            }
            lines.push_back(std::move(line));
            t += random() % 6 == 0 ? uniform(3.0, 12.0) : uniform(0.0, 0.5);
        }
        CdgWriterOptions options;
        options.rowsOnScreen = 1 + static_cast<int>(random() % 5);
        if (seed % 2 == 0) options.title = "Song " + std::to_string(seed);
        const CdgStream stream = writeCdg(lines, options);
        EXPECT_GT(stream.glyphs.size(), 0u);
        expectGlyphsShowAsPlaced(dir, stream);
        if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
}

}  // namespace
}  // namespace tamo::cdg
