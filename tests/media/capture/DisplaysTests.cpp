// The desktop as DisplaysX11 reports it, against windows, monitors and pointer
// moves made by the test on the real display of the test session.

#include "CaptureTestSupport.h"
#include "LumenvaleMedia/DisplaysX11.h"
#include "LumenvaleMedia/MediaError.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

namespace lumenvale::testing {
namespace {

std::ptrdiff_t position(const std::vector<DesktopWindow>& windows, std::uint32_t id) {
    return std::find_if(windows.begin(), windows.end(),
                        [id](const DesktopWindow& window) { return window.id == id; }) -
           windows.begin();
}

TEST(Displays, ScreensFollowTheMonitorsAndThePointer) {
    const x11::XConnection& connection = testConnection();
    DisplaysX11 displays;
    EXPECT_TRUE(displays.captureAvailable());

    std::vector<DisplayScreen> screens = displays.screens();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].id, "screen");
    EXPECT_EQ(screens[0].frame, (Rect{0, 0, 1920, 1080}));
    EXPECT_DOUBLE_EQ(screens[0].scale, 1);
    EXPECT_TRUE(screens[0].primary);

    // A second display on the right half of the desktop.
    TestMonitor monitor(connection, "LV-RIGHT", {960, 0, 960, 1080});
    screens = displays.screens();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].id, "screen") << "the primary display comes first";
    EXPECT_EQ(screens[1].id, "LV-RIGHT");
    EXPECT_EQ(screens[1].frame, (Rect{960, 0, 960, 1080}));

    warpPointer(connection, 100, 200);
    EXPECT_EQ(displays.pointer(), (DesktopPoint{100, 200}));
    EXPECT_EQ(displays.screenUnderPointer()->id, "screen");

    monitor.remove();
    EXPECT_EQ(displays.screens().size(), 1u);
}

TEST(Displays, WindowsFrontToBackWithFramesOwnersAndTitles) {
    const x11::XConnection& connection = testConnection();
    DisplaysX11 displays;
    TestWindow lower(connection, {200, 200, 300, 200}, {255, 0, 0}, Management::managed,
                     "Lower window");
    TestWindow upper(connection, {260, 260, 300, 200}, {0, 0, 255}, Management::managed,
                     "Upper window");

    std::vector<DesktopWindow> windows = displays.windows();
    const auto lowerInfo = findWindow(windows, lower.id());
    const auto upperInfo = findWindow(windows, upper.id());
    ASSERT_TRUE(lowerInfo && upperInfo);
    EXPECT_LT(position(windows, upper.id()), position(windows, lower.id()))
        << "the window mapped last is in front";
    EXPECT_EQ(upperInfo->title, "Upper window");
    EXPECT_EQ(upperInfo->pid, getpid());
    EXPECT_EQ(upperInfo->layer, WindowLayer::normal);
    EXPECT_DOUBLE_EQ(upperInfo->alpha, 1);
    EXPECT_FALSE(upperInfo->minimized);
    // The frame holds the client and the window manager's title bar above it.
    EXPECT_GT(upperInfo->frame.height, 200);
    EXPECT_GE(upperInfo->frame.width, 300);

    lower.raise();
    std::this_thread::sleep_for(100ms);
    windows = displays.windows();
    EXPECT_LT(position(windows, lower.id()), position(windows, upper.id()));

    const std::uint32_t gone = upper.id();
    EXPECT_TRUE(displays.windowExists(gone));
    upper.destroy();
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(displays.windowExists(gone));
    EXPECT_FALSE(findWindow(displays.windows(), gone));
}

TEST(Displays, WindowFramesLeaveOutAClientDrawnShadow) {
    const x11::XConnection& connection = testConnection();
    TestWindow plain(connection, {100, 100, 300, 200}, {0, 0, 255}, Management::managed);
    TestWindow shadowed(connection, {500, 100, 300, 200}, {0, 0, 255}, Management::managed);
    setShadow(connection, shadowed.id(), 10, 10, 5, 15);
    DisplaysX11 displays;
    const auto windows = displays.windows();
    const auto plainInfo = findWindow(windows, plain.id());
    const auto shadowedInfo = findWindow(windows, shadowed.id());
    ASSERT_TRUE(plainInfo && shadowedInfo);
    EXPECT_DOUBLE_EQ(shadowedInfo->frame.width, plainInfo->frame.width - 20);
    EXPECT_DOUBLE_EQ(shadowedInfo->frame.height, plainInfo->frame.height - 20);
    EXPECT_DOUBLE_EQ(shadowedInfo->frame.x - shadowedInfo->frame.y,
                     plainInfo->frame.x - plainInfo->frame.y + 400 + 10 - 5);
}

TEST(Displays, ScaleFollowsTheDesktopsXftDpi) {
    const x11::XConnection& connection = testConnection();
    const std::string resources = "Xft.antialias:\t1\nXft.dpi:\t144\n";
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, connection.root(),
                        XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(resources.size()), resources.data());
    sync(connection);
    DisplaysX11 displays;
    const auto screens = displays.screens();
    xcb_delete_property(connection.get(), connection.root(), XCB_ATOM_RESOURCE_MANAGER);
    sync(connection);
    ASSERT_FALSE(screens.empty());
    EXPECT_DOUBLE_EQ(screens[0].scale, 1.5);
    EXPECT_DOUBLE_EQ(displays.screens()[0].scale, 1);
}

} // namespace
} // namespace lumenvale::testing
