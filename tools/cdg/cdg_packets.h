#pragma once

#include "cdg_format.h"

#include <array>
#include <cstdint>
#include <span>

namespace tamo::cdg {

using Packet = std::array<std::uint8_t, core::cdg::packetSize>;

// A palette colour with four bits per channel, as the stream stores it.
struct Colour4 {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
};

Packet memoryPresetPacket(std::uint8_t colour);
Packet borderPresetPacket(std::uint8_t colour);

// Draws a 6 by 12 tile at a tile row and column; rows hold six bits each with
// the leftmost pixel in bit 5, a set bit taking colour1. With exclusiveOr the
// colour is XORed into the picture instead of replacing it.
Packet tilePacket(std::uint8_t colour0, std::uint8_t colour1, int row, int column,
                  std::span<const std::uint8_t, 12> rows, bool exclusiveOr);

// Loads palette entries 0 to 7, or 8 to 15 when high is set.
Packet palettePacket(bool high, std::span<const Colour4, 8> colours);

}  // namespace tamo::cdg
