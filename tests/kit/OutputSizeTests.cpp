#include "LumenvaleKit/OutputSize.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace lumenvale {
namespace {

TEST(OutputSize, WorkedValues) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Codec h264 = Codec::h264, hevc = Codec::hevc;
    const struct {
        Size points;
        double scale;
        Codec codec;
        PixelSize pixels;
    } cases[] = {
        // clang-format off
        {{1440, 900}, 2, h264, {2880, 1800}}, {{2560, 1440}, 2, h264, {4096, 2304}},
        {{2560, 1440}, 2, hevc, {5120, 2880}}, {{3008, 1692}, 2, h264, {4096, 2304}},
        {{3008, 1692}, 2, hevc, {6016, 3384}}, {{4000, 100}, 2, h264, {4096, 102}},
        {{100, 4000}, 2, h264, {102, 4096}},   {{301, 201}, 1, h264, {300, 200}},
        {{800, 600}, 1.5, h264, {1200, 900}},  {{0.5, 10}, 1, h264, {2, 10}},
        {{1, 1}, 1, h264, {2, 2}},             {{0, 500}, 2, hevc, {2, 2}},
        {{500, -1}, 2, h264, {2, 2}},          {{nan, 500}, 1, h264, {2, 2}},
        {{100, 100}, nan, h264, {2, 2}},
        // The nudge before truncation: 5.1 * 100 is 509.99999999999994.
        {{5.1, 2.3}, 100, h264, {510, 230}},
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(OutputSize::pixels(c.points, c.scale, c.codec), c.pixels)
            << c.points.width << "x" << c.points.height << " @" << c.scale;
    }
}

TEST(OutputSize, RandomSizesStayEvenAndWithinTheLimits) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> side(0.1, 9000);
    for (int i = 0; i < 2000; ++i) {
        const Size points{side(random), side(random)};
        for (Codec codec : allCodecs) {
            const auto [width, height] = OutputSize::pixels(points, 2, codec);
            EXPECT_TRUE(width % 2 == 0 && height % 2 == 0 && width >= 2 && height >= 2);
            EXPECT_LE(static_cast<double>(width), std::max(2.0, points.width * 2 + 1e-6));
            EXPECT_LE(static_cast<double>(std::max(width, height)), maxLongSide(codec));
            // Raising a side to 2 may pass the pixel limit by at most the other side.
            EXPECT_LE(static_cast<double>(width * height), maxPixels(codec) + 2 * 8192);
        }
    }
}

TEST(OutputSizeDeathTest, InfiniteAreaStops) {
    EXPECT_DEATH(OutputSize::pixels({std::numeric_limits<double>::infinity(), 100}, 1, Codec::h264),
                 "movie");
}

} // namespace
} // namespace lumenvale
