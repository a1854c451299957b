#include "image_file.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>
#include <vector>

namespace tamo::cdg {
namespace {

bool writeBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        error = "cannot write " + path.string();
        return false;
    }
    return true;
}

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint32_t crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc = 0) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xedb88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) crc = table[(crc ^ data[i]) & 0xff] ^ (crc >> 8);
    return ~crc;
}

void appendChunk(std::vector<std::uint8_t>& out, std::string_view type, const std::vector<std::uint8_t>& data) {
    appendBigEndian(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t typeAt = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), data.begin(), data.end());
    appendBigEndian(out, crc32(out.data() + typeAt, out.size() - typeAt));
}

}  // namespace

bool writePpm(const std::filesystem::path& path, std::span<const std::uint8_t> rgba, int width, int height,
              std::string& error) {
    const std::string header = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    std::vector<std::uint8_t> bytes(header.begin(), header.end());
    for (std::size_t i = 0; i + 3 < rgba.size(); i += 4) bytes.insert(bytes.end(), &rgba[i], &rgba[i] + 3);
    return writeBytes(path, bytes, error);
}

bool writePng(const std::filesystem::path& path, std::span<const std::uint8_t> rgba, int width, int height,
              std::string& error) {
    // Rows of RGB, each after a "no filter" byte.
    std::vector<std::uint8_t> raw;
    const auto w = static_cast<std::size_t>(width);
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y) {
        raw.push_back(0);
        for (std::size_t x = 0; x < w; ++x) raw.insert(raw.end(), &rgba[(y * w + x) * 4], &rgba[(y * w + x) * 4] + 3);
    }

    // A zlib stream of stored blocks: no compression, so no library needed,
    // and a 300 by 216 picture stays under 200 KB.
    std::vector<std::uint8_t> zlib = {0x78, 0x01};
    std::size_t at = 0;
    do {
        const std::size_t size = std::min<std::size_t>(raw.size() - at, 65535);
        zlib.push_back(at + size == raw.size() ? 1 : 0);
        zlib.push_back(static_cast<std::uint8_t>(size));
        zlib.push_back(static_cast<std::uint8_t>(size >> 8));
        zlib.push_back(static_cast<std::uint8_t>(~size));
        zlib.push_back(static_cast<std::uint8_t>(~size >> 8));
        zlib.insert(zlib.end(), raw.begin() + static_cast<std::ptrdiff_t>(at),
                    raw.begin() + static_cast<std::ptrdiff_t>(at + size));
        at += size;
    } while (at < raw.size());
    std::uint32_t a = 1, b = 0;
    for (const std::uint8_t byte : raw) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    appendBigEndian(zlib, (b << 16) | a);

    std::vector<std::uint8_t> header;
    appendBigEndian(header, static_cast<std::uint32_t>(width));
    appendBigEndian(header, static_cast<std::uint32_t>(height));
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB, deflate, no filter, no interlace

    std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    appendChunk(png, "IHDR", header);
    appendChunk(png, "IDAT", zlib);
    appendChunk(png, "IEND", {});
    return writeBytes(path, png, error);
}

}  // namespace tamo::cdg
