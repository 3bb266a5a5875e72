#include "LumenvaleKit/Bubble.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(Bubble, DiameterLimits) {
    const struct {
        Rect area;
        double requested, maximum, clamped;
    } cases[] = {
        // clang-format off
        {{0, 0, 1000, 600}, 300, 240, 240},  {{0, 0, 200, 200}, 300, 96, 96},
        {{0, 0, 200, 200}, 10, 96, 96},      {{0, 0, 3000, 2000}, 1000, 480, 480},
        {{0, 0, 3000, 2000}, 140, 480, 140}, {{0, 0, 3000, 2000}, -1000, 480, 96},
        {{0, 0, 600, 1000}, 200, 240, 200},  {{0, 0, 10, 10}, 50, 96, 96},
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(Bubble::maxDiameter(c.area), c.maximum);
        EXPECT_DOUBLE_EQ(Bubble::clampDiameter(c.requested, c.area), c.clamped);
    }
}

TEST(Bubble, Placement) {
    const Rect area{100, 50, 1000, 600}; // maximum diameter 240
    const Rect fresh{132, 82, 140, 140};
    const struct {
        std::optional<Rect> last;
        double diameter;
        Rect placed;
    } cases[] = {
        // clang-format off
        {Rect{500, 300, 200, 200}, 140, {500, 300, 200, 200}},  // kept
        {Rect{900, 410, 200, 240}, 140, {900, 410, 200, 240}},  // kept, touching the corner
        {Rect{500, 300, 300, 300}, 140, fresh},                 // too large
        {Rect{500, 300, 50, 50}, 140, fresh},                   // too small
        {Rect{1000, 300, 200, 200}, 140, fresh},                // partly outside
        {std::nullopt, 140, fresh},
        {std::nullopt, 1000, {132, 82, 240, 240}},              // remembered size clamped
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Bubble::frame(c.last, c.diameter, area), c.placed);
    }
}

TEST(Bubble, ResizeAndKeep) {
    const Rect area{0, 0, 1000, 600};
    const Rect bubble{400, 200, 200, 200};
    EXPECT_EQ(Bubble::resized(bubble, 100, area), (Rect{450, 250, 100, 100}));
    EXPECT_EQ(Bubble::resized(bubble, 200 - 1000, area), (Rect{452, 252, 96, 96}));
    EXPECT_EQ(Bubble::resized(bubble, 1000, area), (Rect{380, 180, 240, 240}));
    EXPECT_EQ(Bubble::resized({0, 0, 100, 100}, 240, area), (Rect{0, 0, 240, 240}));

    const struct {
        Rect frame, area, kept;
    } cases[] = {
        // clang-format off
        {{950, 100, 200, 200}, area, {800, 100, 200, 200}},  // against the right edge
        {{-50, -80, 200, 200}, area, {0, 0, 200, 200}},      // left and bottom
        {{300, 500, 200, 200}, area, {300, 400, 200, 200}},  // top
        {{10, 10, 200, 200}, {0, 0, 100, 100}, {-100, -100, 200, 200}},  // larger: sticks out
        {{500, 300, 140, 140}, {100, 100, 800, 400}, {500, 300, 140, 140}},
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Bubble::keep(c.frame, c.area), c.kept);
    }
}

} // namespace
} // namespace lumenvale
