#pragma once

#include "lyric_line.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// Turns timed lyrics into a CD+G packet stream that a karaoke player shows
// the usual way: a few lines on screen in white on dark blue, each character
// turning amber as it is sung, the line replaced by a later one once sung,
// and a fresh screen after every break in the singing. Used to make the
// project's own .cdg files for tests, benchmarks and the demo library.
namespace tamo::cdg {

// Palette indices the writer draws with; the stream loads all sixteen.
inline constexpr std::uint8_t backgroundColour = 0;
inline constexpr std::uint8_t lyricColour = 1;
inline constexpr std::uint8_t sungColour = 2;
inline constexpr std::uint8_t titleColour = 4;
inline constexpr std::uint8_t artistColour = 5;

// Lines of text that fit across the safe area, at 12 pixels a character.
inline constexpr int charactersPerRow = 24;

struct CdgWriterOptions {
    // Shown on a title screen until the first lyrics appear; may be empty.
    std::string title;
    std::string artist;
    // The shortest stream to write, in seconds: normally the song's length.
    double duration = 0.0;
    // How early a screen of lyrics appears before its first line is sung.
    double leadSeconds = 2.0;
    // A longer pause between two lines starts a fresh screen.
    double breakSeconds = 4.0;
    // Text rows on one screen, 1 to 5.
    int rowsOnScreen = 4;
};

inline constexpr std::size_t noPacket = std::numeric_limits<std::size_t>::max();

// Where and when one character was drawn, for tests and for checking a file
// by eye. Packet indices count from 0; packet k shows from time k / 300.
struct PlacedGlyph {
    char character = ' ';
    int tileColumn = 0;  // left column of its two by two tile cell
    int tileRow = 0;     // top row of that cell
    std::uint8_t colour = lyricColour;
    std::uint8_t colourWhenSung = sungColour;  // same as colour for title text
    double singAt = 0.0;                       // the time asked for, in seconds
    std::size_t shownPacket = noPacket;        // last packet drawing it
    std::size_t sungPacket = noPacket;         // last packet highlighting it
    std::size_t hiddenPacket = noPacket;       // first packet clearing or covering it
};

struct CdgStream {
    std::vector<std::uint8_t> bytes;  // whole 24-byte packets
    std::vector<PlacedGlyph> glyphs;  // every non-blank character drawn

    std::size_t packetCount() const { return bytes.size() / 24; }
};

// Lines are taken in order of their first word's start. Lines wider than a
// row wrap at word boundaries; a word wider than a row is cut.
CdgStream writeCdg(const std::vector<LyricLine>& lines, const CdgWriterOptions& options = {});

}  // namespace tamo::cdg
