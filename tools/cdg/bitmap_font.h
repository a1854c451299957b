#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tamo::cdg {

// Glyphs are designed on a 5 by 9 grid (7 rows above the baseline, 2 below)
// and drawn at twice that size, centred in a cell of two by two tiles, which
// keeps a line readable on a television across a room.
inline constexpr int glyphWidth = 5;
inline constexpr int glyphHeight = 9;
inline constexpr int glyphScale = 2;
inline constexpr int cellWidth = 12;
inline constexpr int cellHeight = 24;

// UTF-8 text turned into what the font can draw: printable ASCII stays, a tab
// becomes a space, and every other character (or broken byte) becomes '?'.
std::string displayText(std::string_view utf8);

// Whether pixel (x, y) of a cell, x below 12 and y below 24, is lit for the
// character. Characters outside printable ASCII draw as '?'.
bool cellPixel(char character, int x, int y);

// One tile of a character's cell: twelve rows, top first, six bits a row
// with the leftmost pixel in bit 5. tileX and tileY are 0 or 1.
std::array<std::uint8_t, 12> cellTile(char character, int tileX, int tileY);

}  // namespace tamo::cdg
