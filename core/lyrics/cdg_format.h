#pragma once

#include <cstddef>
#include <cstdint>

// The layout of a CD+G subcode stream, shared by the decoder and by the
// programs that write such streams.
namespace tamo::core::cdg {

inline constexpr int pictureWidth = 300;
inline constexpr int pictureHeight = 216;
inline constexpr int tileWidth = 6;
inline constexpr int tileHeight = 12;
inline constexpr int tileColumns = pictureWidth / tileWidth;   // 50
inline constexpr int tileRows = pictureHeight / tileHeight;    // 18

// Players may crop the outer tile ring, so text belongs inside this area.
inline constexpr int safeLeft = 6;
inline constexpr int safeTop = 12;
inline constexpr int safeWidth = 288;
inline constexpr int safeHeight = 192;

inline constexpr std::size_t pixelCount = std::size_t{pictureWidth} * pictureHeight;
inline constexpr std::size_t frameBytes = pixelCount * 4;

inline constexpr std::size_t packetSize = 24;
inline constexpr std::size_t dataOffset = 4;
inline constexpr std::size_t dataSize = 16;
inline constexpr int packetsPerSecond = 300;
inline constexpr std::uintmax_t largestFile = 0x4000000;

inline constexpr std::uint8_t graphicsCommand = 9;
// Only the low six bits of the command, instruction and data bytes carry
// meaning; the top two belong to the subcode channels P and Q.
inline constexpr std::uint8_t symbolMask = 0x3f;

enum class Instruction : std::uint8_t {
    memoryPreset = 1,
    borderPreset = 2,
    tileBlock = 6,
    scrollPreset = 20,
    scrollCopy = 24,
    transparentColour = 28,
    loadPaletteLow = 30,
    loadPaletteHigh = 31,
    tileBlockXor = 38,
};

}  // namespace tamo::core::cdg
