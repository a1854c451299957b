#include "cdg_packets.h"

namespace tamo::cdg {
namespace {

namespace format = core::cdg;

Packet graphicsPacket(format::Instruction instruction) {
    Packet packet{};
    packet[0] = format::graphicsCommand;
    packet[1] = static_cast<std::uint8_t>(instruction);
    return packet;
}

std::uint8_t low(int value, int bits) { return static_cast<std::uint8_t>(value & ((1 << bits) - 1)); }

}  // namespace

Packet memoryPresetPacket(std::uint8_t colour) {
    Packet packet = graphicsPacket(format::Instruction::memoryPreset);
    packet[format::dataOffset] = low(colour, 4);
    return packet;
}

Packet borderPresetPacket(std::uint8_t colour) {
    Packet packet = graphicsPacket(format::Instruction::borderPreset);
    packet[format::dataOffset] = low(colour, 4);
    return packet;
}

Packet tilePacket(std::uint8_t colour0, std::uint8_t colour1, int row, int column,
                  std::span<const std::uint8_t, 12> rows, bool exclusiveOr) {
    Packet packet = graphicsPacket(exclusiveOr ? format::Instruction::tileBlockXor : format::Instruction::tileBlock);
    std::uint8_t* data = packet.data() + format::dataOffset;
    data[0] = low(colour0, 4);
    data[1] = low(colour1, 4);
    data[2] = low(row, 5);
    data[3] = low(column, 6);
    for (std::size_t r = 0; r < rows.size(); ++r) data[4 + r] = low(rows[r], 6);
    return packet;
}

Packet palettePacket(bool high, std::span<const Colour4, 8> colours) {
    Packet packet = graphicsPacket(high ? format::Instruction::loadPaletteHigh : format::Instruction::loadPaletteLow);
    std::uint8_t* data = packet.data() + format::dataOffset;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const Colour4 c = colours[i];
        // Red and the top of green in the first symbol, the rest of green and
        // blue in the second: six usable bits each.
        data[2 * i] = static_cast<std::uint8_t>((low(c.red, 4) << 2) | (low(c.green, 4) >> 2));
        data[2 * i + 1] = static_cast<std::uint8_t>((low(c.green, 2) << 4) | low(c.blue, 4));
    }
    return packet;
}

}  // namespace tamo::cdg
