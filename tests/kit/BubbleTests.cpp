#include "LumenvaleKit/Bubble.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(Bubble, DiameterLimits) {
    const struct {
        Rect area;
        double requested;
        double maximum;
        double clamped;
    } cases[] = {
        {{0, 0, 1000, 600}, 300, 240, 240},  {{0, 0, 200, 200}, 300, 96, 96},
        {{0, 0, 200, 200}, 10, 96, 96},      {{0, 0, 3000, 2000}, 1000, 480, 480},
        {{0, 0, 3000, 2000}, 140, 480, 140}, {{0, 0, 3000, 2000}, -1000, 480, 96},
        {{0, 0, 600, 1000}, 200, 240, 200},  {{0, 0, 10, 10}, 50, 96, 96},
    };
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(Bubble::maxDiameter(c.area), c.maximum);
        EXPECT_DOUBLE_EQ(Bubble::clampDiameter(c.requested, c.area), c.clamped);
    }
}

TEST(Bubble, Placement) {
    const Rect area{100, 50, 1000, 600};
    // Kept: inside and at an allowed size.
    EXPECT_EQ(Bubble::frame(Rect{500, 300, 200, 200}, 140, area), (Rect{500, 300, 200, 200}));
    EXPECT_EQ(Bubble::frame(Rect{900, 410, 200, 240}, 140, area), (Rect{900, 410, 200, 240}));
    const Rect fresh{132, 82, 140, 140};
    // Too large for the area (its maximum is 240), partly outside, absent.
    EXPECT_EQ(Bubble::frame(Rect{500, 300, 300, 300}, 140, area), fresh);
    EXPECT_EQ(Bubble::frame(Rect{1000, 300, 200, 200}, 140, area), fresh);
    EXPECT_EQ(Bubble::frame(std::nullopt, 140, area), fresh);
    EXPECT_EQ(Bubble::frame(Rect{500, 300, 50, 50}, 140, area), fresh);
    // The remembered diameter is clamped to the area.
    EXPECT_EQ(Bubble::frame(std::nullopt, 1000, area), (Rect{132, 82, 240, 240}));
}

TEST(Bubble, ResizeAndKeep) {
    const Rect area{0, 0, 1000, 600};
    // Centred on the old centre.
    EXPECT_EQ(Bubble::resized({400, 200, 200, 200}, 100, area), (Rect{450, 250, 100, 100}));
    // A scroll of -1000 shrinks to 96, never less; growth stops at the maximum.
    EXPECT_EQ(Bubble::resized({400, 200, 200, 200}, 200 - 1000, area), (Rect{452, 252, 96, 96}));
    EXPECT_EQ(Bubble::resized({400, 200, 200, 200}, 1000, area), (Rect{380, 180, 240, 240}));
    // Growing near a corner pushes the bubble back inside.
    EXPECT_EQ(Bubble::resized({0, 0, 100, 100}, 240, area), (Rect{0, 0, 240, 240}));

    const struct {
        Rect frame;
        Rect area;
        Rect kept;
    } cases[] = {
        {{950, 100, 200, 200}, area, {800, 100, 200, 200}},             // against the right edge
        {{-50, -80, 200, 200}, area, {0, 0, 200, 200}},                 // left and bottom
        {{300, 500, 200, 200}, area, {300, 400, 200, 200}},             // top
        {{10, 10, 200, 200}, {0, 0, 100, 100}, {-100, -100, 200, 200}}, // larger: sticks out
        {{500, 300, 140, 140}, {100, 100, 800, 400}, {500, 300, 140, 140}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Bubble::keep(c.frame, c.area), c.kept);
    }
}

} // namespace
} // namespace lumenvale
