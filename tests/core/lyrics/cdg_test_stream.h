#pragma once

#include "temp_dir.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>

namespace tamo::test {

// Raw packets spelled out byte by byte, independent of the project's writer,
// so a mistake shared by writer and decoder cannot hide.
struct RawPacket {
    std::array<std::uint8_t, 24> bytes{};
};

inline RawPacket rawPacket(std::uint8_t command, std::uint8_t instruction, std::initializer_list<std::uint8_t> data = {}) {
    RawPacket p;
    p.bytes[0] = command;
    p.bytes[1] = instruction;
    std::size_t i = 4;
    for (const std::uint8_t byte : data) p.bytes[i++] = byte;
    return p;
}

// Tile block (or XOR) with the same six-bit row pattern on all twelve rows.
inline RawPacket rawTile(std::uint8_t colour0, std::uint8_t colour1, std::uint8_t row, std::uint8_t column,
                         std::uint8_t pattern, bool exclusiveOr = false) {
    RawPacket p = rawPacket(9, exclusiveOr ? 38 : 6, {colour0, colour1, row, column});
    for (std::size_t r = 0; r < 12; ++r) p.bytes[8 + r] = pattern;
    return p;
}

inline std::string rawStream(std::initializer_list<RawPacket> packets) {
    std::string out;
    for (const RawPacket& p : packets) out.append(reinterpret_cast<const char*>(p.bytes.data()), p.bytes.size());
    return out;
}

}  // namespace tamo::test
