#pragma once

#include "cdg_format.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tamo::core {

// Replays a whole .cdg file held in memory and gives the 300 by 216 RGBA
// picture at a playback time. The picture is a pure function of the file and
// the number of packets applied, so going back in time replays from packet 0.
// Not thread-safe: one decoder per playing song, used from one thread.
class CdgDecoder {
public:
    CdgDecoder();

    // Reads the file in one go. False for anything but a regular file of 1 to
    // 0x4000000 bytes holding at least one whole packet, or a file that
    // changed size while being read; the picture is then black.
    bool load(std::string_view path);

    // Brings the picture to the given time. Times that are not finite or
    // below zero count as zero. False only when nothing is loaded.
    bool renderAt(double seconds);

    // RGBA bytes, row by row, alpha always 255.
    std::span<const std::uint8_t> frame() const { return frame_; }

    // Palette indices 0 to 15, one byte per pixel, row by row.
    std::span<const std::uint8_t> pixels() const { return pixels_; }

    // The loaded packets, a multiple of 24 bytes; empty when nothing loaded.
    std::span<const std::uint8_t> packets() const { return packets_; }

    bool isLoaded() const { return loaded_; }
    std::uint64_t packetCount() const { return packets_.size() / cdg::packetSize; }
    double duration() const { return static_cast<double>(packetCount()) / cdg::packetsPerSecond; }
    std::uint64_t position() const { return position_; }

    // Goes up by one each time the frame is rewritten, so a caller can skip
    // uploading a picture that has not changed since it last looked.
    std::uint64_t frameGeneration() const { return frameGeneration_; }

private:
    void reset();
    void writeFrame();
    void applyPacket(const std::uint8_t* packet);
    void presetMemory(const std::uint8_t* data);
    void presetBorder(const std::uint8_t* data);
    void drawTile(const std::uint8_t* data, bool exclusiveOr);
    void scroll(const std::uint8_t* data, bool wrap);
    void loadPalette(const std::uint8_t* data, int firstEntry);

    std::vector<std::uint8_t> packets_;
    std::vector<std::uint8_t> pixels_;
    std::vector<std::uint8_t> scratch_;
    std::vector<std::uint8_t> frame_;
    std::array<std::array<std::uint8_t, 3>, 16> palette_{};
    std::uint64_t position_ = 0;
    bool loaded_ = false;
    bool dirty_ = false;
    std::uint64_t frameGeneration_ = 0;
};

}  // namespace tamo::core
