#include "cdg_decoder.h"
#include "temp_dir.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace tamo::core {
namespace {

namespace fs = std::filesystem;
using Rgba = std::array<std::uint8_t, 4>;

constexpr int width = 300;
constexpr int height = 216;

// Packets spelled out byte by byte, not through the project's writer, so a
// mistake shared by writer and decoder cannot hide.
std::string packet(std::uint8_t command, std::uint8_t instruction, std::initializer_list<std::uint8_t> data = {}) {
    std::string p(24, '\0');
    p[0] = static_cast<char>(command);
    p[1] = static_cast<char>(instruction);
    std::size_t at = 4;
    for (const std::uint8_t byte : data) p[at++] = static_cast<char>(byte);
    return p;
}

// Tile block (or XOR) with the same six-bit pattern on all twelve rows.
std::string tile(std::uint8_t colour0, std::uint8_t colour1, std::uint8_t row, std::uint8_t column,
                 std::uint8_t pattern, bool exclusiveOr = false) {
    std::string p = packet(9, exclusiveOr ? 38 : 6, {colour0, colour1, row, column});
    std::fill(p.begin() + 8, p.begin() + 20, static_cast<char>(pattern));
    return p;
}

std::uint8_t pixelAt(const CdgDecoder& decoder, int x, int y) {
    return decoder.pixels()[static_cast<std::size_t>(y * width + x)];
}

Rgba rgbaAt(const CdgDecoder& decoder, int x, int y) {
    const auto at = decoder.frame().subspan(static_cast<std::size_t>(y * width + x) * 4, 4);
    return {at[0], at[1], at[2], at[3]};
}

CdgDecoder loaded(const test::TempDir& dir, const std::string& bytes) {
    CdgDecoder decoder;
    EXPECT_TRUE(decoder.load(dir.write("stream.cdg", bytes).string()));
    return decoder;
}

CdgDecoder renderAll(const test::TempDir& dir, const std::string& bytes) {
    CdgDecoder decoder = loaded(dir, bytes);
    EXPECT_TRUE(decoder.renderAt(1e9));
    return decoder;
}

// Shows the picture as it stands after packet k.
bool showPacket(CdgDecoder& decoder, int k) { return decoder.renderAt((k + 0.5) / 300); }

// One tile per cell of the whole 50 by 18 grid, nearly every pixel unlike
// its neighbours.
std::string busyPicture() {
    std::string out;
    for (int r = 0; r < 18; ++r)
        for (int c = 0; c < 50; ++c)
            out += tile(static_cast<std::uint8_t>((r + c) % 16), static_cast<std::uint8_t>((r * 3 + c * 5 + 1) % 16),
                        static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(c),
                        static_cast<std::uint8_t>((r * 7 + c * 11 + 5) % 64));
    return out;
}

// Mostly drawing instructions with random operands, some out of range.
std::string randomStream(std::uint32_t seed, int count) {
    std::mt19937 random(seed);
    const std::uint8_t instructions[] = {1, 2, 6, 6, 6, 20, 24, 30, 31, 38, 38, 38, 28, 3};
    std::string out;
    for (int i = 0; i < count; ++i) {
        std::string p = packet(9, instructions[random() % std::size(instructions)]);
        for (std::size_t b = 4; b < 20; ++b) p[b] = static_cast<char>(random());
        out += p;
    }
    return out;
}

TEST(CdgDecoder, LoadNeedsARegularFileOfWholePacketsUpTo64MiB) {
    test::TempDir dir;
    fs::create_directory(dir / "folder.cdg");
    // Sparse files: cheap to make, read back as zeros (command 0, ignored).
    const fs::path largest = dir.write("largest.cdg");
    const fs::path tooLarge = dir.write("too-large.cdg");
    fs::resize_file(largest, 0x4000000);
    fs::resize_file(tooLarge, 0x4000001);
    CdgDecoder decoder;
    for (const fs::path& bad : {dir.write("short.cdg", std::string(23, '\x09')), dir.write("empty.cdg"),
                                dir / "missing.cdg", dir / "folder.cdg", tooLarge}) {
        EXPECT_FALSE(decoder.load(bad.string())) << bad;
        EXPECT_FALSE(decoder.renderAt(0.0));
    }
    ASSERT_TRUE(decoder.load(largest.string()));
    EXPECT_EQ(decoder.packetCount(), 0x4000000u / 24);

    // 47 bytes: one packet, and a short tail dropped without complaint.
    ASSERT_TRUE(decoder.load(dir.write("one.cdg", packet(9, 1, {15}) + std::string(23, '\x3f')).string()));
    EXPECT_EQ(decoder.packets().size(), 24u);
    ASSERT_TRUE(decoder.renderAt(0.0));
    EXPECT_EQ(rgbaAt(decoder, 150, 100), (Rgba{255, 255, 255, 255}));

    // A failed load drops the song that was playing and shows black.
    EXPECT_FALSE(decoder.load((dir / "missing.cdg").string()));
    EXPECT_FALSE(decoder.renderAt(1.0));
    EXPECT_EQ(decoder.packetCount(), 0u);
    const auto frame = decoder.frame();
    for (std::size_t i = 0; i < frame.size(); ++i) ASSERT_EQ(frame[i], i % 4 == 3 ? 255 : 0) << i;
}

TEST(CdgDecoder, RenderAtReplaysUpToThePacketOfTheTime) {
    test::TempDir dir;
    const fs::path three = dir.write("three.cdg", packet(9, 1, {15}) + packet(9, 1, {0}) + packet(9, 1, {15}));
    const double infinity = std::numeric_limits<double>::infinity();
    // Times that are not usable count as zero, which shows the first packet.
    for (const double time : {-1.0, std::numeric_limits<double>::quiet_NaN(), infinity, -infinity, 0.5 / 300}) {
        SCOPED_TRACE(time);
        CdgDecoder decoder;
        ASSERT_TRUE(decoder.load(three.string()));
        ASSERT_TRUE(decoder.renderAt(time));
        EXPECT_EQ(decoder.position(), 1u);
        EXPECT_EQ(pixelAt(decoder, 0, 0), 15);
    }
    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(three.string()));
    ASSERT_TRUE(decoder.renderAt(1.5 / 300));  // packet k shows from k / 300
    EXPECT_EQ(pixelAt(decoder, 0, 0), 0);
    // At or past the end everything is applied, and asking again does nothing.
    ASSERT_TRUE(decoder.renderAt(decoder.duration()));
    EXPECT_EQ(decoder.position(), 3u);
    const std::uint64_t generation = decoder.frameGeneration();
    ASSERT_TRUE(decoder.renderAt(1e12));
    EXPECT_EQ(decoder.frameGeneration(), generation);

    // Going back replays from the start to exactly the picture of that time.
    const fs::path random = dir.write("random.cdg", randomStream(7, 4000));
    CdgDecoder travelled;
    CdgDecoder direct;
    ASSERT_TRUE(travelled.load(random.string()) && direct.load(random.string()));
    ASSERT_TRUE(travelled.renderAt(10.0) && travelled.renderAt(5.0) && direct.renderAt(5.0));
    EXPECT_EQ(travelled.position(), 1501u);
    EXPECT_TRUE(std::ranges::equal(travelled.pixels(), direct.pixels()));
    EXPECT_TRUE(std::ranges::equal(travelled.frame(), direct.frame()));
}

TEST(CdgDecoder, OnlyTheLowSixBitsOfCommandAndInstructionCount) {
    test::TempDir dir;
    CdgDecoder decoder = loaded(dir, packet(0x49, 1, {15}) +       // command 9
                                         packet(0x09, 0x41, {0x30}) +  // memory preset, colour 0
                                         packet(0x0a, 1, {15}) +       // not graphics
                                         packet(0x89, 0xc1, {0x4f}) +  // command 9, preset 15
                                         packet(0x09, 28, {0, 1, 2}) + packet(0x09, 3, {5}) +
                                         packet(0x09, 39, {5}) + packet(0x09, 0, {5}));  // all ignored
    const int expected[] = {15, 0, 0, 15};
    for (int k = 0; k < 4; ++k) {
        ASSERT_TRUE(showPacket(decoder, k));
        EXPECT_EQ(pixelAt(decoder, 299, 215), expected[k]) << "after packet " << k;
    }
    const std::uint64_t generation = decoder.frameGeneration();
    ASSERT_TRUE(decoder.renderAt(1.0));
    EXPECT_EQ(pixelAt(decoder, 0, 0), 15);
    EXPECT_EQ(decoder.frameGeneration(), generation);  // nothing changed, nothing rewritten
}

TEST(CdgDecoder, PaletteStartsBlackWithWhiteAtFifteenAndStretchesFourBits) {
    test::TempDir dir;
    // Entry 1 of the low half: red 15, green 6, blue 10, unused top bits set.
    const std::string low = packet(9, 30, {0, 0, 0xc0 | (15 << 2) | (6 >> 2), 0xc0 | ((6 & 3) << 4) | 10});
    // Entry 15, the eighth of the high half: red 2, green 9, blue 4.
    std::string high = packet(9, 31);
    high[4 + 14] = (2 << 2) | (9 >> 2);
    high[4 + 15] = ((9 & 3) << 4) | 4;
    // Colours 14 and 15; a set bit takes colour 15, so x = 6 is 15, x = 7 is 14.
    CdgDecoder decoder = loaded(dir, tile(14, 15, 1, 1, 0b101010) + tile(1, 1, 0, 0, 0) + low + high);

    ASSERT_TRUE(showPacket(decoder, 0));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (Rgba{255, 255, 255, 255}));
    EXPECT_EQ(rgbaAt(decoder, 7, 12), (Rgba{0, 0, 0, 255}));
    ASSERT_TRUE(showPacket(decoder, 1));
    const std::vector<std::uint8_t> before(decoder.pixels().begin(), decoder.pixels().end());
    ASSERT_TRUE(showPacket(decoder, 2));
    EXPECT_EQ(rgbaAt(decoder, 0, 0), (Rgba{255, 102, 170, 255}));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (Rgba{255, 255, 255, 255}));
    ASSERT_TRUE(showPacket(decoder, 3));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (Rgba{34, 153, 68, 255}));
    EXPECT_EQ(rgbaAt(decoder, 7, 12), (Rgba{0, 0, 0, 255}));
    // A palette load recolours the picture without touching its pixels.
    EXPECT_TRUE(std::ranges::equal(decoder.pixels(), before));
}

TEST(CdgDecoder, TilesClipAtTheEdgeXorTwiceRestoresAndBorderSparesTheSafeArea) {
    test::TempDir dir;
    // Row 2, column 3 with the top bits of every operand set; then the
    // bottom right cell; then five tiles wholly outside the picture.
    CdgDecoder decoder = loaded(dir, tile(0x42, 0x87, 0x22, 0x43, 0xc0 | 0b100001) + tile(4, 5, 17, 49, 0b000001) +
                                         tile(6, 6, 18, 0, 0) + tile(6, 6, 31, 10, 0) + tile(6, 6, 0, 50, 0) +
                                         tile(6, 6, 5, 63, 0, true) + tile(6, 6, 31, 63, 0, true));
    ASSERT_TRUE(showPacket(decoder, 1));
    for (const auto& [x, y, colour] : std::vector<std::array<int, 3>>{
             {18, 24, 7}, {19, 24, 2}, {23, 35, 7}, {17, 24, 0}, {18, 36, 0}, {299, 215, 5}, {294, 204, 4}}) {
        EXPECT_EQ(pixelAt(decoder, x, y), colour) << x << "," << y;
    }
    // Nothing written and the frame not rebuilt.
    const std::vector<std::uint8_t> before(decoder.pixels().begin(), decoder.pixels().end());
    const std::uint64_t generation = decoder.frameGeneration();
    for (int k = 2; k < 7; ++k) {
        ASSERT_TRUE(showPacket(decoder, k));
        EXPECT_EQ(decoder.frameGeneration(), generation) << "packet " << k;
    }
    EXPECT_TRUE(std::ranges::equal(decoder.pixels(), before));

    const std::string picture = busyPicture();
    const CdgDecoder original = renderAll(dir, picture);
    const std::string twice = tile(3, 12, 4, 7, 0b110101, true) + tile(9, 0, 17, 49, 0b011100, true);
    CdgDecoder xored = loaded(dir, picture + twice + twice);
    ASSERT_TRUE(showPacket(xored, 901));
    EXPECT_EQ(pixelAt(xored, 42, 48), pixelAt(original, 42, 48) ^ 12);
    EXPECT_EQ(pixelAt(xored, 44, 48), pixelAt(original, 44, 48) ^ 3);
    ASSERT_TRUE(xored.renderAt(1e9));
    EXPECT_TRUE(std::ranges::equal(xored.pixels(), original.pixels()));

    // A border preset paints all outside the 288 by 192 safe area, and only that.
    const CdgDecoder border = renderAll(dir, packet(9, 1, {5}) + packet(9, 2, {0x37, 3}));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            ASSERT_EQ(pixelAt(border, x, y), x >= 6 && x < 294 && y >= 12 && y < 204 ? 5 : 7) << x << "," << y;
}

TEST(CdgDecoder, ScrollsMoveByWholeTilesWithFillOrWrap) {
    test::TempDir dir;
    const std::string picture = busyPicture();
    const CdgDecoder original = renderAll(dir, picture);
    const auto source = [&](int x, int y) { return pixelAt(original, x, y); };
    const struct {
        const char* name;
        std::string scrolls;
        std::function<int(int, int)> expected;
    } cases[] = {
        {"copy right twice", packet(9, 24, {3, 16, 0}) + packet(9, 24, {3, 16 | 5, 0}),
         [&](int x, int y) { return source((x - 12 + width) % width, y); }},
        {"copy up", packet(9, 24, {3, 0, 32 | 11}), [&](int x, int y) { return source(x, (y + 12) % height); }},
        {"copy right and down", packet(9, 24, {3, 16, 16}),
         [&](int x, int y) { return source((x - 6 + width) % width, (y - 12 + height) % height); }},
        {"preset left", packet(9, 20, {0x47, 32, 0}), [&](int x, int y) { return x + 6 < width ? source(x + 6, y) : 7; }},
        {"preset down", packet(9, 20, {9, 0, 16}), [&](int x, int y) { return y >= 12 ? source(x, y - 12) : 9; }},
        {"preset left and up", packet(9, 20, {9, 32, 32}),
         [&](int x, int y) { return x + 6 < width && y + 12 < height ? source(x + 6, y + 12) : 9; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const CdgDecoder decoder = renderAll(dir, picture + c.scrolls);
        int wrong = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) wrong += pixelAt(decoder, x, y) != c.expected(x, y);
        EXPECT_EQ(wrong, 0);
    }

    // No movement (h and v of 0 or 48) touches nothing, and the frame stays.
    CdgDecoder still = loaded(dir, picture + packet(9, 24, {3, 0, 0}) + packet(9, 20, {3, 48, 48 | 7}));
    ASSERT_TRUE(showPacket(still, 899));
    const std::uint64_t generation = still.frameGeneration();
    ASSERT_TRUE(still.renderAt(1e9));
    EXPECT_EQ(still.frameGeneration(), generation);
    EXPECT_TRUE(std::ranges::equal(still.pixels(), original.pixels()));
}

}  // namespace
}  // namespace tamo::core
