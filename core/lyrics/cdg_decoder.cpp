#include "cdg_decoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace tamo::core {
namespace fs = std::filesystem;
namespace {

constexpr int width = cdg::pictureWidth;
constexpr int height = cdg::pictureHeight;

// The file's size, or 0 when it is not a regular file or cannot be asked.
std::uintmax_t regularFileSize(const fs::path& path) {
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (ec || !fs::is_regular_file(status)) return 0;
    const std::uintmax_t size = fs::file_size(path, ec);
    return ec ? 0 : size;
}

}  // namespace

CdgDecoder::CdgDecoder()
    : pixels_(cdg::pixelCount, 0), scratch_(cdg::pixelCount, 0), frame_(cdg::frameBytes, 0) {
    reset();
    writeFrame();
    dirty_ = false;
}

bool CdgDecoder::load(std::string_view pathText) {
    // Whatever happens below, the previous song must not show through.
    packets_.clear();
    packets_.shrink_to_fit();
    loaded_ = false;
    reset();
    writeFrame();
    dirty_ = false;

    const fs::path path{std::string(pathText)};
    const std::uintmax_t size = regularFileSize(path);
    if (size == 0 || size > cdg::largestFile) return false;

    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    packets_.resize(static_cast<std::size_t>(size));
    in.read(reinterpret_cast<char*>(packets_.data()), static_cast<std::streamsize>(size));
    const bool complete = static_cast<std::uintmax_t>(in.gcount()) == size;

    // A size that moved under us means the file was still being written, and
    // half a song is worse than none.
    if (!complete || regularFileSize(path) != size) {
        packets_.clear();
        packets_.shrink_to_fit();
        reset();
        writeFrame();
        dirty_ = false;
        return false;
    }

    packets_.resize(packets_.size() - packets_.size() % cdg::packetSize);
    if (packets_.empty()) return false;
    loaded_ = true;
    reset();
    return true;
}

bool CdgDecoder::renderAt(double seconds) {
    if (!loaded_) return false;
    const std::uint64_t count = packetCount();
    const double length = static_cast<double>(count) / cdg::packetsPerSecond;
    if (!std::isfinite(seconds) || seconds < 0.0) seconds = 0.0;

    // Time 0 shows the first packet; the packet at index k shows from k / 300.
    std::uint64_t target = count;
    if (seconds < length) {
        const auto reached = static_cast<std::uint64_t>(std::floor(seconds * cdg::packetsPerSecond)) + 1;
        target = std::min(reached, count);
    }

    if (target < position_) reset();
    const std::uint8_t* packet = packets_.data() + position_ * cdg::packetSize;
    for (; position_ < target; ++position_, packet += cdg::packetSize) applyPacket(packet);

    if (dirty_) {
        writeFrame();
        dirty_ = false;
    }
    return true;
}

void CdgDecoder::reset() {
    position_ = 0;
    for (auto& entry : palette_) entry = {0, 0, 0};
    // Streams that draw before loading a palette still show their colour-15
    // text on the black background.
    palette_[15] = {255, 255, 255};
    std::fill(pixels_.begin(), pixels_.end(), std::uint8_t{0});
    dirty_ = true;
}

void CdgDecoder::writeFrame() {
    std::array<std::array<std::uint8_t, 4>, 16> rgba;
    for (std::size_t i = 0; i < rgba.size(); ++i)
        rgba[i] = {palette_[i][0], palette_[i][1], palette_[i][2], 255};
    std::uint8_t* out = frame_.data();
    for (const std::uint8_t index : pixels_) {
        std::memcpy(out, rgba[index & 15].data(), 4);
        out += 4;
    }
    ++frameGeneration_;
}

void CdgDecoder::applyPacket(const std::uint8_t* packet) {
    if ((packet[0] & cdg::symbolMask) != cdg::graphicsCommand) return;
    const std::uint8_t* data = packet + cdg::dataOffset;
    using enum cdg::Instruction;
    // Transparency and the remaining instructions have no meaning for an
    // opaque picture, so they fall through unhandled.
    switch (static_cast<cdg::Instruction>(packet[1] & cdg::symbolMask)) {
    case memoryPreset: presetMemory(data); break;
    case borderPreset: presetBorder(data); break;
    case tileBlock: drawTile(data, false); break;
    case tileBlockXor: drawTile(data, true); break;
    case scrollPreset: scroll(data, false); break;
    case scrollCopy: scroll(data, true); break;
    case loadPaletteLow: loadPalette(data, 0); break;
    case loadPaletteHigh: loadPalette(data, 8); break;
    default: break;
    }
}

void CdgDecoder::presetMemory(const std::uint8_t* data) {
    // The repeat count in data[1] exists for discs with read errors; a file
    // needs no second try.
    std::fill(pixels_.begin(), pixels_.end(), static_cast<std::uint8_t>(data[0] & 15));
    dirty_ = true;
}

void CdgDecoder::presetBorder(const std::uint8_t* data) {
    const auto colour = static_cast<std::uint8_t>(data[0] & 15);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* row = pixels_.data() + static_cast<std::size_t>(y) * width;
        if (y < cdg::safeTop || y >= cdg::safeTop + cdg::safeHeight) {
            std::fill(row, row + width, colour);
            continue;
        }
        std::fill(row, row + cdg::safeLeft, colour);
        std::fill(row + cdg::safeLeft + cdg::safeWidth, row + width, colour);
    }
    dirty_ = true;
}

void CdgDecoder::drawTile(const std::uint8_t* data, bool exclusiveOr) {
    const std::uint8_t colours[2] = {static_cast<std::uint8_t>(data[0] & 15),
                                     static_cast<std::uint8_t>(data[1] & 15)};
    const int x0 = (data[3] & 63) * cdg::tileWidth;
    const int y0 = (data[2] & 31) * cdg::tileHeight;
    // Each pixel is clipped on its own; a tile wholly outside writes nothing.
    const int columns = std::clamp(width - x0, 0, cdg::tileWidth);
    const int rows = std::clamp(height - y0, 0, cdg::tileHeight);
    if (columns == 0 || rows == 0) return;
    for (int r = 0; r < rows; ++r) {
        const std::uint8_t bits = data[4 + r];
        std::uint8_t* out = pixels_.data() + static_cast<std::size_t>(y0 + r) * width + x0;
        for (int c = 0; c < columns; ++c) {
            const std::uint8_t colour = colours[(bits >> (5 - c)) & 1];
            out[c] = exclusiveOr ? static_cast<std::uint8_t>(colour ^ (out[c] & 15)) : colour;
        }
    }
    dirty_ = true;
}

void CdgDecoder::scroll(const std::uint8_t* data, bool wrap) {
    const auto fill = static_cast<std::uint8_t>(data[0] & 15);
    const int horizontal = data[1] & 48;
    const int vertical = data[2] & 48;
    // The fine offset bits are ignored: content always moves by whole tiles.
    const int dx = horizontal == 16 ? cdg::tileWidth : horizontal == 32 ? -cdg::tileWidth : 0;
    const int dy = vertical == 16 ? cdg::tileHeight : vertical == 32 ? -cdg::tileHeight : 0;
    if (dx == 0 && dy == 0) return;

    scratch_ = pixels_;
    for (int y = 0; y < height; ++y) {
        std::uint8_t* out = pixels_.data() + static_cast<std::size_t>(y) * width;
        int sy = y - dy;
        if (sy < 0 || sy >= height) {
            if (!wrap) {
                std::fill(out, out + width, fill);
                continue;
            }
            sy = (sy + height) % height;
        }
        const std::uint8_t* in = scratch_.data() + static_cast<std::size_t>(sy) * width;
        if (dx >= 0) {
            // Destination columns [dx, width) come from [0, width - dx); the
            // first dx columns come from the far edge or the fill.
            std::memcpy(out + dx, in, static_cast<std::size_t>(width - dx));
            if (wrap) std::memcpy(out, in + width - dx, static_cast<std::size_t>(dx));
            else std::fill(out, out + dx, fill);
        } else {
            const int shift = -dx;
            std::memcpy(out, in + shift, static_cast<std::size_t>(width - shift));
            if (wrap) std::memcpy(out + width - shift, in, static_cast<std::size_t>(shift));
            else std::fill(out + width - shift, out + width, fill);
        }
    }
    dirty_ = true;
}

void CdgDecoder::loadPalette(const std::uint8_t* data, int firstEntry) {
    // Four bits per channel, spread over two six-bit symbols; * 17 maps 15 to 255.
    for (int i = 0; i < 8; ++i) {
        const std::uint8_t a = data[2 * i];
        const std::uint8_t b = data[2 * i + 1];
        auto& entry = palette_[static_cast<std::size_t>(firstEntry + i)];
        entry[0] = static_cast<std::uint8_t>(((a >> 2) & 15) * 17);
        entry[1] = static_cast<std::uint8_t>((((a & 3) << 2) | ((b >> 4) & 3)) * 17);
        entry[2] = static_cast<std::uint8_t>((b & 15) * 17);
    }
    dirty_ = true;
}

}  // namespace tamo::core
