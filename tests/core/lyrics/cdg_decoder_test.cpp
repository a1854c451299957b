#include "cdg_decoder.h"
#include "cdg_test_stream.h"
#include "temp_dir.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace tamo::core {
namespace {

namespace fs = std::filesystem;
using test::rawPacket;
using test::rawStream;
using test::rawTile;

constexpr int width = 300;
constexpr int height = 216;
const double nan = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

std::uint8_t pixelAt(const CdgDecoder& decoder, int x, int y) {
    return decoder.pixels()[static_cast<std::size_t>(y * width + x)];
}

std::array<std::uint8_t, 4> rgbaAt(const CdgDecoder& decoder, int x, int y) {
    const auto frame = decoder.frame();
    const std::size_t at = static_cast<std::size_t>(y * width + x) * 4;
    return {frame[at], frame[at + 1], frame[at + 2], frame[at + 3]};
}

bool frameIsBlack(const CdgDecoder& decoder) {
    const auto frame = decoder.frame();
    for (std::size_t i = 0; i < frame.size(); i += 4)
        if (frame[i] != 0 || frame[i + 1] != 0 || frame[i + 2] != 0 || frame[i + 3] != 255) return false;
    return true;
}

// Loads a stream from a real file and applies every packet.
CdgDecoder renderAll(const test::TempDir& dir, const std::string& bytes) {
    CdgDecoder decoder;
    EXPECT_TRUE(decoder.load(dir.write("stream.cdg", bytes).string()));
    EXPECT_TRUE(decoder.renderAt(1e9));
    return decoder;
}

// A picture where nearly every pixel differs from its neighbours, drawn with
// one tile per cell of the whole 50 by 18 grid.
std::string busyPicture() {
    std::string out;
    for (std::uint8_t r = 0; r < 18; ++r)
        for (std::uint8_t c = 0; c < 50; ++c)
            out += rawStream({rawTile(static_cast<std::uint8_t>((r + c) % 16), static_cast<std::uint8_t>((r * 3 + c * 5 + 1) % 16),
                                      r, c, static_cast<std::uint8_t>((r * 7 + c * 11 + 5) % 64))});
    return out;
}

// Mostly drawing instructions with random operands, some of them out of range.
std::string randomActingStream(std::uint32_t seed, int count) {
    std::mt19937 random(seed);
    const std::uint8_t instructions[] = {1, 2, 6, 6, 6, 20, 24, 30, 31, 38, 38, 38, 28, 3};
    std::string out;
    for (int i = 0; i < count; ++i) {
        test::RawPacket p = rawPacket(9, instructions[random() % std::size(instructions)]);
        for (std::size_t b = 4; b < 20; ++b) p.bytes[b] = static_cast<std::uint8_t>(random());
        out += rawStream({p});
    }
    return out;
}

TEST(CdgDecoderLoad, NeedsARegularFileHoldingAWholePacket) {
    test::TempDir dir;
    CdgDecoder decoder;
    EXPECT_FALSE(decoder.load(dir.write("short.cdg", std::string(23, '\x09')).string()));
    EXPECT_FALSE(decoder.renderAt(0.0));
    EXPECT_FALSE(decoder.load(dir.write("empty.cdg", "").string()));
    EXPECT_FALSE(decoder.load((dir / "missing.cdg").string()));
    fs::create_directory(dir / "folder.cdg");
    EXPECT_FALSE(decoder.load((dir / "folder.cdg").string()));
    EXPECT_TRUE(frameIsBlack(decoder));

    // 47 bytes: one packet and a short tail that is dropped without complaint.
    const std::string onePacket = rawStream({rawPacket(9, 1, {15})}) + std::string(23, '\x3f');
    ASSERT_TRUE(decoder.load(dir.write("one.cdg", onePacket).string()));
    EXPECT_EQ(decoder.packetCount(), 1u);
    EXPECT_EQ(decoder.packets().size(), 24u);
    EXPECT_DOUBLE_EQ(decoder.duration(), 1.0 / 300);
    ASSERT_TRUE(decoder.renderAt(0.0));
    EXPECT_EQ(rgbaAt(decoder, 150, 100), (std::array<std::uint8_t, 4>{255, 255, 255, 255}));

    // A failed load drops the song that was playing.
    EXPECT_FALSE(decoder.load((dir / "missing.cdg").string()));
    EXPECT_FALSE(decoder.isLoaded());
    EXPECT_FALSE(decoder.renderAt(1.0));
    EXPECT_EQ(decoder.packetCount(), 0u);
    EXPECT_TRUE(frameIsBlack(decoder));
}

TEST(CdgDecoderLoad, AcceptsFilesUpToSixtyFourMebibytes) {
    test::TempDir dir;
    CdgDecoder decoder;
    // Sparse files: cheap to make, read back as zeros (command 0, ignored).
    const fs::path largest = dir.write("largest.cdg");
    fs::resize_file(largest, 0x4000000);
    ASSERT_TRUE(decoder.load(largest.string()));
    EXPECT_EQ(decoder.packetCount(), 0x4000000u / 24);
    EXPECT_TRUE(decoder.renderAt(1e9));
    EXPECT_EQ(decoder.position(), 0x4000000u / 24);

    const fs::path tooLarge = dir.write("too-large.cdg");
    fs::resize_file(tooLarge, 0x4000001);
    EXPECT_FALSE(decoder.load(tooLarge.string()));
    EXPECT_FALSE(decoder.isLoaded());
}

TEST(CdgDecoderRender, TimesThatAreNotUsableCountAsZero) {
    test::TempDir dir;
    const std::string bytes = rawStream({rawPacket(9, 1, {15}), rawPacket(9, 1, {0}), rawPacket(9, 1, {15})});
    const fs::path file = dir.write("three.cdg", bytes);
    for (const double time : {-1.0, nan, infinity, -infinity, 0.0, -0.0, 0.5 / 300}) {
        SCOPED_TRACE(time);
        CdgDecoder decoder;
        ASSERT_TRUE(decoder.load(file.string()));
        ASSERT_TRUE(decoder.renderAt(time));
        EXPECT_EQ(decoder.position(), 1u);
        EXPECT_EQ(pixelAt(decoder, 0, 0), 15);
    }

    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(file.string()));
    ASSERT_TRUE(decoder.renderAt(1.5 / 300));  // packet k shows from k / 300
    EXPECT_EQ(decoder.position(), 2u);
    EXPECT_EQ(pixelAt(decoder, 0, 0), 0);

    // At or past the end: everything applied, and asking again does nothing.
    ASSERT_TRUE(decoder.renderAt(decoder.duration()));
    EXPECT_EQ(decoder.position(), 3u);
    EXPECT_EQ(pixelAt(decoder, 0, 0), 15);
    const std::uint64_t generation = decoder.frameGeneration();
    ASSERT_TRUE(decoder.renderAt(1e12));
    EXPECT_EQ(decoder.position(), 3u);
    EXPECT_EQ(decoder.frameGeneration(), generation);
}

TEST(CdgDecoderRender, SeekingBackReplaysToTheSamePicture) {
    test::TempDir dir;
    const fs::path file = dir.write("random.cdg", randomActingStream(7, 4000));
    CdgDecoder travelled;
    ASSERT_TRUE(travelled.load(file.string()));
    ASSERT_TRUE(travelled.renderAt(10.0));
    ASSERT_TRUE(travelled.renderAt(5.0));
    CdgDecoder direct;
    ASSERT_TRUE(direct.load(file.string()));
    ASSERT_TRUE(direct.renderAt(5.0));

    EXPECT_EQ(travelled.position(), 1501u);
    EXPECT_EQ(direct.position(), 1501u);
    EXPECT_TRUE(std::ranges::equal(travelled.pixels(), direct.pixels()));
    EXPECT_TRUE(std::ranges::equal(travelled.frame(), direct.frame()));
}

TEST(CdgDecoderPackets, OnlyTheLowSixBitsOfCommandAndInstructionCount) {
    test::TempDir dir;
    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(dir.write("bits.cdg", rawStream({
                                                       rawPacket(0x49, 1, {15}),        // command 9
                                                       rawPacket(0x09, 0x41, {0x30}),   // memory preset, colour 0
                                                       rawPacket(0x0a, 1, {15}),        // not graphics
                                                       rawPacket(0x89, 0xc1, {0x4f}),   // command 9, preset 15
                                                       rawPacket(0x09, 28, {0, 1, 2}),  // transparency: ignored
                                                       rawPacket(0x09, 3, {5}),
                                                       rawPacket(0x09, 39, {5}),
                                                       rawPacket(0x09, 0, {5}),
                                                   }))
                                   .string()));
    const int expected[] = {15, 0, 0, 15};
    for (int k = 0; k < 4; ++k) {
        ASSERT_TRUE(decoder.renderAt((k + 0.5) / 300));
        EXPECT_EQ(pixelAt(decoder, 299, 215), expected[k]) << "after packet " << k;
    }
    const std::uint64_t generation = decoder.frameGeneration();
    ASSERT_TRUE(decoder.renderAt(1.0));
    EXPECT_EQ(decoder.position(), 8u);
    EXPECT_EQ(pixelAt(decoder, 0, 0), 15);
    EXPECT_EQ(decoder.frameGeneration(), generation);  // nothing changed, nothing rewritten
}

TEST(CdgDecoderPackets, PaletteStartsBlackWithWhiteAtFifteenAndStretchesFourBits) {
    test::TempDir dir;
    // Colour 1 of the tile is the set bits: leftmost pixel set, the next clear.
    const auto tile = rawTile(14, 15, 1, 1, 0b101010);
    // Entry 1 of the low half: red 15, green 5, blue 10, with the unused
    // top bits set to show they are ignored.
    const auto low = rawPacket(9, 30, {0, 0, 0xc0 | (15 << 2) | (5 >> 2), 0xc0 | ((5 & 3) << 4) | 10});
    // Entry 15 is the eighth of the high half: red 2, green 9, blue 4.
    test::RawPacket high = rawPacket(9, 31);
    high.bytes[4 + 14] = (2 << 2) | (9 >> 2);
    high.bytes[4 + 15] = ((9 & 3) << 4) | 4;
    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(dir.write("palette.cdg", rawStream({tile, rawTile(1, 1, 0, 0, 0), low, high})).string()));

    ASSERT_TRUE(decoder.renderAt(0.0));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (std::array<std::uint8_t, 4>{255, 255, 255, 255}));
    EXPECT_EQ(rgbaAt(decoder, 7, 12), (std::array<std::uint8_t, 4>{0, 0, 0, 255}));
    ASSERT_TRUE(decoder.renderAt(1.5 / 300));
    const std::vector<std::uint8_t> before(decoder.pixels().begin(), decoder.pixels().end());

    ASSERT_TRUE(decoder.renderAt(2.5 / 300));
    EXPECT_EQ(rgbaAt(decoder, 0, 0), (std::array<std::uint8_t, 4>{255, 85, 170, 255}));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (std::array<std::uint8_t, 4>{255, 255, 255, 255}));
    ASSERT_TRUE(decoder.renderAt(3.5 / 300));
    EXPECT_EQ(rgbaAt(decoder, 6, 12), (std::array<std::uint8_t, 4>{34, 153, 68, 255}));
    EXPECT_EQ(rgbaAt(decoder, 7, 12), (std::array<std::uint8_t, 4>{0, 0, 0, 255}));  // entry 14 loaded as black
    // Palette loads recolour the picture; the pixels stay as they were.
    EXPECT_TRUE(std::ranges::equal(decoder.pixels(), before));
}

TEST(CdgDecoderPackets, TilesLandOnTheirCellAndClipAtThePictureEdge) {
    test::TempDir dir;
    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(dir.write("tiles.cdg", rawStream({
                                                        // Row 2, column 3; top bits of every operand set.
                                                        rawTile(0x42, 0x87, 0x22, 0x43, 0xc0 | 0b100001),
                                                        rawTile(4, 5, 17, 49, 0b000001),  // bottom right corner
                                                        rawTile(6, 6, 18, 0, 0),
                                                        rawTile(6, 6, 31, 10, 0),
                                                        rawTile(6, 6, 0, 50, 0),
                                                        rawTile(6, 6, 5, 63, 0, true),
                                                        rawTile(6, 6, 31, 63, 0, true),
                                                    }))
                                   .string()));
    ASSERT_TRUE(decoder.renderAt(1.5 / 300));
    EXPECT_EQ(pixelAt(decoder, 18, 24), 7);
    EXPECT_EQ(pixelAt(decoder, 19, 24), 2);
    EXPECT_EQ(pixelAt(decoder, 23, 35), 7);
    EXPECT_EQ(pixelAt(decoder, 17, 24), 0);
    EXPECT_EQ(pixelAt(decoder, 18, 36), 0);
    EXPECT_EQ(pixelAt(decoder, 299, 215), 5);
    EXPECT_EQ(pixelAt(decoder, 294, 204), 4);

    // Rows 18 to 31 and columns 50 to 63 lie wholly outside: no pixel is
    // written and the frame is not rebuilt.
    const std::vector<std::uint8_t> before(decoder.pixels().begin(), decoder.pixels().end());
    const std::uint64_t generation = decoder.frameGeneration();
    for (int k = 2; k < 7; ++k) {
        ASSERT_TRUE(decoder.renderAt((k + 0.5) / 300));
        EXPECT_EQ(decoder.frameGeneration(), generation) << "packet " << k;
    }
    EXPECT_TRUE(std::ranges::equal(decoder.pixels(), before));
}

TEST(CdgDecoderPackets, TileXorDrawnTwiceRestoresThePicture) {
    test::TempDir dir;
    const std::string picture = busyPicture();
    const CdgDecoder original = renderAll(dir, picture);
    std::string bytes = picture;
    for (int twice = 0; twice < 2; ++twice)
        bytes += rawStream({rawTile(3, 12, 4, 7, 0b110101, true), rawTile(9, 0, 17, 49, 0b011100, true)});
    CdgDecoder decoder;
    ASSERT_TRUE(decoder.load(dir.write("xor.cdg", bytes).string()));
    ASSERT_TRUE(decoder.renderAt((900 + 1.5) / 300));
    EXPECT_EQ(pixelAt(decoder, 7 * 6, 4 * 12), original.pixels()[4 * 12 * width + 7 * 6] ^ 12);
    EXPECT_EQ(pixelAt(decoder, 7 * 6 + 2, 4 * 12), original.pixels()[4 * 12 * width + 7 * 6 + 2] ^ 3);
    ASSERT_TRUE(decoder.renderAt(1e9));
    EXPECT_TRUE(std::ranges::equal(decoder.pixels(), original.pixels()));
    EXPECT_TRUE(std::ranges::equal(decoder.frame(), original.frame()));
}

TEST(CdgDecoderPackets, BorderPresetPaintsOnlyOutsideTheSafeArea) {
    test::TempDir dir;
    const CdgDecoder decoder = renderAll(dir, rawStream({rawPacket(9, 1, {5}), rawPacket(9, 2, {0x37, 3})}));
    int inside = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool safe = x >= 6 && x < 294 && y >= 12 && y < 204;
            inside += safe;
            ASSERT_EQ(pixelAt(decoder, x, y), safe ? 5 : 7) << x << "," << y;
        }
    }
    EXPECT_EQ(inside, 288 * 192);
}

TEST(CdgDecoderPackets, ScrollsMoveByWholeTilesWithFillOrWrap) {
    test::TempDir dir;
    const std::string picture = busyPicture();
    const CdgDecoder original = renderAll(dir, picture);
    const auto source = [&](int x, int y) { return original.pixels()[static_cast<std::size_t>(y * width + x)]; };

    struct Case {
        const char* name;
        std::string scrolls;
        std::function<int(int, int)> expected;
    };
    const std::vector<Case> cases = {
        {"copy right twice", rawStream({rawPacket(9, 24, {3, 16, 0}), rawPacket(9, 24, {3, 16 | 5, 0})}),
         [&](int x, int y) { return source((x - 12 + width) % width, y); }},
        {"copy up", rawStream({rawPacket(9, 24, {3, 0, 32 | 11})}),
         [&](int x, int y) { return source(x, (y + 12) % height); }},
        {"copy right and down", rawStream({rawPacket(9, 24, {3, 16, 16})}),
         [&](int x, int y) { return source((x - 6 + width) % width, (y - 12 + height) % height); }},
        {"preset left", rawStream({rawPacket(9, 20, {0x47, 32, 0})}),
         [&](int x, int y) { return x + 6 < width ? source(x + 6, y) : 7; }},
        {"preset down", rawStream({rawPacket(9, 20, {9, 0, 16})}),
         [&](int x, int y) { return y >= 12 ? source(x, y - 12) : 9; }},
        {"preset left and up", rawStream({rawPacket(9, 20, {9, 32, 32})}),
         [&](int x, int y) { return x + 6 < width && y + 12 < height ? source(x + 6, y + 12) : 9; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CdgDecoder decoder = renderAll(dir, picture + c.scrolls);
        int wrong = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) wrong += pixelAt(decoder, x, y) != c.expected(x, y);
        EXPECT_EQ(wrong, 0);
    }

    // No movement (h and v of 0 or 48) touches nothing, and the frame stays.
    CdgDecoder still;
    ASSERT_TRUE(still.load(dir.write("still.cdg", picture + rawStream({rawPacket(9, 24, {3, 0, 0}),
                                                                       rawPacket(9, 20, {3, 48, 48 | 7})}))
                               .string()));
    ASSERT_TRUE(still.renderAt(899.5 / 300));
    const std::uint64_t generation = still.frameGeneration();
    ASSERT_TRUE(still.renderAt(1e9));
    EXPECT_EQ(still.frameGeneration(), generation);
    EXPECT_TRUE(std::ranges::equal(still.pixels(), original.pixels()));
}

}  // namespace
}  // namespace tamo::core
