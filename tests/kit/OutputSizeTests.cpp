#include "LumenvaleKit/OutputSize.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace lumenvale {
namespace {

TEST(OutputSize, WorkedValues) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        Size points;
        double scale;
        Codec codec;
        PixelSize pixels;
    } cases[] = {
        {{1440, 900}, 2, Codec::h264, {2880, 1800}},
        {{2560, 1440}, 2, Codec::h264, {4096, 2304}},
        {{2560, 1440}, 2, Codec::hevc, {5120, 2880}},
        {{3008, 1692}, 2, Codec::h264, {4096, 2304}},
        {{3008, 1692}, 2, Codec::hevc, {6016, 3384}},
        {{4000, 100}, 2, Codec::h264, {4096, 102}},
        {{301, 201}, 1, Codec::h264, {300, 200}},
        {{800, 600}, 1.5, Codec::h264, {1200, 900}},
        {{0.5, 10}, 1, Codec::h264, {2, 10}},
        {{1, 1}, 1, Codec::h264, {2, 2}},
        {{0, 500}, 2, Codec::h264, {2, 2}},
        {{0, 500}, 2, Codec::hevc, {2, 2}},
        {{500, 0}, 2, Codec::h264, {2, 2}},
        {{-10, 500}, 1, Codec::h264, {2, 2}},
        {{nan, 500}, 1, Codec::h264, {2, 2}},
        {{500, nan}, 1, Codec::h264, {2, 2}},
        {{100, 100}, nan, Codec::h264, {2, 2}},
        // Tall areas are limited on their height.
        {{100, 4000}, 2, Codec::h264, {102, 4096}},
        // The nudge before truncation: 5.1 * 100 is 509.99999999999994.
        {{5.1, 2.3}, 100, Codec::h264, {510, 230}},
        {{479.99999999, 10}, 3, Codec::h264, {1440, 30}},
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
            const PixelSize pixels = OutputSize::pixels(points, 2, codec);
            EXPECT_EQ(pixels.width % 2, 0);
            EXPECT_EQ(pixels.height % 2, 0);
            EXPECT_GE(pixels.width, 2);
            EXPECT_LE(static_cast<double>(pixels.width), std::max(2.0, points.width * 2 + 1e-6));
            EXPECT_LE(static_cast<double>(std::max(pixels.width, pixels.height)),
                      std::max(2.0, maxLongSide(codec)));
            // Raising a side to 2 may exceed the area limit by at most that side.
            EXPECT_LE(static_cast<double>(pixels.width) * static_cast<double>(pixels.height),
                      maxPixels(codec) + 2 * maxLongSide(codec));
        }
    }
}

TEST(OutputSizeDeathTest, InfiniteAreaStops) {
    EXPECT_DEATH(OutputSize::pixels({std::numeric_limits<double>::infinity(), 100}, 1, Codec::h264),
                 "movie");
}

} // namespace
} // namespace lumenvale
