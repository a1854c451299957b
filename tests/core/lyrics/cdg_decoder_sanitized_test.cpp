// Built with address and undefined-behaviour checks that abort on the first
// finding: any byte sequence must load and render without touching memory it
// does not own.
#include "cdg_decoder.h"
#include "temp_dir.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

namespace tamo::core {
namespace {

// Half the streams are noise; the other half are graphics packets with
// random operands, so every instruction meets every out-of-range value.
std::string randomStream(std::mt19937& random) {
    std::size_t length = random() % 4000;
    if (random() % 4 == 0) length -= length % 24;
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    if (random() % 2 == 0) {
        const std::uint8_t instructions[] = {1, 2, 6, 20, 24, 28, 30, 31, 38};
        for (std::size_t at = 0; at + 24 <= bytes.size(); at += 24) {
            bytes[at] = static_cast<char>((random() & 0xc0) | 9);
            bytes[at + 1] = static_cast<char>((random() & 0xc0) | instructions[random() % std::size(instructions)]);
        }
    }
    return bytes;
}

double randomTime(std::mt19937& random, double duration) {
    switch (random() % 8) {
    case 0: return std::numeric_limits<double>::quiet_NaN();
    case 1: return (random() % 2 ? 1 : -1) * std::numeric_limits<double>::infinity();
    case 2: return -std::uniform_real_distribution<double>(0.0, 1e6)(random);
    case 3: return duration + std::uniform_real_distribution<double>(0.0, 1e9)(random);
    case 4: return std::numeric_limits<double>::max();
    default: return std::uniform_real_distribution<double>(0.0, duration)(random);
    }
}

TEST(CdgDecoderSanitized, AnyBytesLoadAndRenderSafely) {
    test::TempDir dir;
    CdgDecoder reused;
    for (std::uint32_t seed = 1; seed <= 600; ++seed) {
        std::mt19937 random(seed);
        const std::string bytes = randomStream(random);
        const auto path = dir.write("stream-" + std::to_string(seed % 7) + ".cdg", bytes);
        const bool loaded = reused.load(path.string());
        ASSERT_EQ(loaded, bytes.size() >= 24) << "seed " << seed;
        double last = 0.0;
        for (int step = 0; step < 6; ++step) {
            last = randomTime(random, reused.duration());
            ASSERT_EQ(reused.renderAt(last), loaded);
            ASSERT_LE(reused.position(), reused.packetCount());
        }
        const auto frame = reused.frame();
        for (std::size_t i = 3; i < frame.size(); i += 4) ASSERT_EQ(frame[i], 255) << "seed " << seed;
        for (const std::uint8_t pixel : reused.pixels()) ASSERT_LT(pixel, 16) << "seed " << seed;

        // A fresh decoder asked once for the last time gives the same picture.
        if (loaded && seed % 10 == 0) {
            CdgDecoder fresh;
            ASSERT_TRUE(fresh.load(path.string()));
            ASSERT_TRUE(fresh.renderAt(last));
            ASSERT_TRUE(std::ranges::equal(fresh.frame(), reused.frame())) << "seed " << seed;
        }
    }
}

}  // namespace
}  // namespace tamo::core
