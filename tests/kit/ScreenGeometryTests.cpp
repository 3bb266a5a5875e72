#include "LumenvaleKit/ScreenGeometry.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(ScreenGeometry, SourceRect) {
    const struct {
        Rect area;
        Rect screen;
        Rect expected;
    } cases[] = {
        {{100, 600, 400, 200}, {0, 0, 1440, 900}, {100, 100, 400, 200}},
        {{0, 0, 1440, 900}, {0, 0, 1440, 900}, {0, 0, 1440, 900}},
        // A second screen to the right of the main one, taller and lower.
        {{1540, 100, 300, 200}, {1440, -180, 1920, 1080}, {100, 600, 300, 200}},
        // A dragged area with negative size reads through its standardised corners.
        {{500, 800, -400, -200}, {0, 0, 1440, 900}, {100, 100, 400, 200}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ScreenGeometry::sourceRect(c.area, c.screen), c.expected);
    }
}

TEST(ScreenGeometry, AppKitRect) {
    EXPECT_EQ(ScreenGeometry::appKitRect({100, 100, 400, 200}, 900), (Rect{100, 600, 400, 200}));
    EXPECT_EQ(ScreenGeometry::appKitRect({0, 0, 1440, 900}, 900), (Rect{0, 0, 1440, 900}));
    // A window on a screen above the main one has a negative y in window-list space.
    EXPECT_EQ(ScreenGeometry::appKitRect({10, -500, 300, 100}, 900), (Rect{10, 1300, 300, 100}));
}

} // namespace
} // namespace lumenvale
