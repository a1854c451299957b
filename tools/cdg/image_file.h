#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace tamo::cdg {

// Writes an RGBA picture as a binary PPM (P6) or an uncompressed PNG; both
// drop the alpha channel, which is always opaque here. False with a message
// when the file cannot be written.
bool writePpm(const std::filesystem::path& path, std::span<const std::uint8_t> rgba, int width, int height,
              std::string& error);
bool writePng(const std::filesystem::path& path, std::span<const std::uint8_t> rgba, int width, int height,
              std::string& error);

}  // namespace tamo::cdg
