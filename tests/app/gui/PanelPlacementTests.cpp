// Where a panel goes while a capture that records Lumenvale's windows (Wayland) runs:
// never over what is recorded.

#include "gui/panels/PanelPlacement.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

// Two 1280×720 displays side by side (desktop coordinates: y up); the control is 100×36
// points at the top middle of the left one.
const Screen left{"left", {0, 0, 1280, 720}, {0, 0, 1280, 720}, 1};
const Screen right{"right", {1280, 0, 1280, 720}, {1280, 0, 1280, 720}, 1};
const Rect control{590, 676, 100, 36};

TEST(PanelPlacement, KeepsClearOfTheRecordedAreaOrDisplayOrHides) {
    using PanelPlacement::clearOf;
    // An area lower down leaves the control where it is.
    EXPECT_EQ(clearOf(control, {100, 100, 400, 300}, {left, right}, 8), control);
    // An area reaching the top: the control goes just under it, on the same display.
    EXPECT_EQ(clearOf(control, {400, 300, 500, 420}, {left, right}, 8), (Rect{590, 256, 100, 36}));
    // An area as tall as the display: to the top middle of the other display.
    EXPECT_EQ(clearOf(control, {400, 0, 500, 720}, {left, right}, 8), (Rect{1870, 676, 100, 36}));
    // The whole left display recorded: the same; with no other display, nowhere.
    EXPECT_EQ(clearOf(control, left.frame, {left, right}, 8), (Rect{1870, 676, 100, 36}));
    EXPECT_EQ(clearOf(control, left.frame, {left}, 8), std::nullopt);
    // Touching the recorded area's edge is clear of it.
    EXPECT_EQ(clearOf(control, {0, 0, 1280, 676}, {left}, 8), control);
}

} // namespace
} // namespace lumenvale
