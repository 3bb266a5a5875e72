// A screen or area capture never shows this process's own windows, except the
// kept ones (the camera bubble), while windows of other processes show as usual,
// also where they lie under one of ours.

#include "CaptureTestSupport.h"
#include "LumenvaleMedia/CaptureX11.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace lumenvale::testing {
namespace {

const Colour foreignBlue{30, 60, 210};
const Colour ownRed{220, 30, 30};
const Colour keptGreen{40, 190, 60};

int countNear(const Picture& picture, const Colour& colour) {
    int count = 0;
    for (std::int64_t y = 0; y < picture.size.height; y += 2) {
        for (std::int64_t x = 0; x < picture.size.width; x += 2) {
            count += near(picture.at(x, y), colour, 12) ? 1 : 0;
        }
    }
    return count;
}

TEST(OwnWindows, HiddenFromAnAreaButKeptAndForeignWindowsShow) {
    // The other process's window first: fork before any capture thread runs.
    ForeignWindow foreign({300, 300, 400, 300}, foreignBlue);
    const x11::XConnection& connection = testConnection();
    TestWindow overForeign(connection, {400, 350, 200, 150}, ownRed, Management::unmanaged);
    TestWindow overDesktop(connection, {800, 350, 100, 100}, ownRed, Management::unmanaged);
    TestWindow kept(connection, {650, 550, 120, 120}, keptGreen, Management::unmanaged);

    const x11::PixelRect area{250, 250, 700, 500};
    CaughtCapture catcher(captureRequest(CaptureArea{x11::toRect(area)}, {700, 500},
                                         OwnWindows::hidden, {kept.id()}));
    auto inArea = [&](const Picture& p, std::int64_t x, std::int64_t y) {
        return p.at(x - area.x, y - area.y);
    };
    const auto picture =
        catcher.waitFor([&](const Picture& p) { return near(inArea(p, 710, 610), keptGreen); });
    ASSERT_TRUE(picture) << "the kept window shows";
    EXPECT_EQ(countNear(*picture, ownRed), 0) << "no pixel of the own windows";
    EXPECT_TRUE(near(inArea(*picture, 500, 425), foreignBlue))
        << "the other process's window shows through where ours covers it: "
        << describe(inArea(*picture, 500, 425));
    EXPECT_TRUE(near(inArea(*picture, 320, 320), foreignBlue));
    EXPECT_FALSE(near(inArea(*picture, 850, 400), ownRed));
    EXPECT_TRUE(near(inArea(*picture, 660, 560), keptGreen)) << "kept, over the foreign window";
}

TEST(OwnWindows, HiddenFromTheScreenWithTheirWindowManagerFrames) {
    ForeignWindow foreign({100, 600, 300, 300}, foreignBlue);
    const x11::XConnection& connection = testConnection();
    // Partly over the foreign window, mostly over the bare (black) desktop.
    TestWindow managed(connection, {300, 650, 300, 150}, ownRed, Management::managed);
    const auto window = findWindow(managed.id());
    ASSERT_TRUE(window);
    ASSERT_GT(window->frame.height, 150) << "framed by the window manager";

    CaughtCapture catcher(
        captureRequest(CaptureScreen{"screen"}, {1920, 1080}, OwnWindows::hidden));
    const auto picture =
        catcher.waitFor([&](const Picture& p) { return near(p.at(150, 650), foreignBlue); });
    ASSERT_TRUE(picture);
    EXPECT_EQ(countNear(*picture, ownRed), 0);
    // The whole frame, title bar included, shows what is beneath it: here the desktop.
    const auto titleBar = picture->at(500, static_cast<std::int64_t>(window->frame.y) + 3);
    EXPECT_TRUE(near(titleBar, {0, 0, 0}, 0)) << describe(titleBar);
}

TEST(OwnWindows, AWindowMovingInIsNeverSeen) {
    ForeignWindow foreign({0, 0, 1920, 1080}, foreignBlue);
    const x11::XConnection& connection = testConnection();
    TestWindow wanderer(connection, {1400, 100, 150, 150}, ownRed, Management::unmanaged);
    const x11::PixelRect area{100, 100, 600, 400};
    std::atomic<int> redFrames{0};
    std::atomic<int> frames{0};
    CaptureX11 capture(
        captureRequest(CaptureArea{x11::toRect(area)}, {600, 400}, OwnWindows::hidden));
    capture.start(
        [&](const VideoFrame& frame) {
            ++frames;
            for (std::int64_t y = 0; y < frame.size.height; y += 10) {
                const std::uint8_t* row = frame.bgra + y * frame.strideBytes;
                for (std::int64_t x = 0; x < frame.size.width; x += 10) {
                    const std::uint8_t* pixel = row + x * 4;
                    if (pixel[2] > 200 && pixel[1] < 60 && pixel[0] < 60) {
                        ++redFrames;
                        return;
                    }
                }
            }
        },
        nullptr);
    // In and out as fast as the server takes it, so moves land between the capture's
    // look at the windows and its grab.
    for (int step = 0; step < 600; ++step) {
        wanderer.move(step % 2 == 0 ? 200 + step % 50 : 1400, 150);
        std::this_thread::sleep_for(1ms);
    }
    std::this_thread::sleep_for(100ms);
    capture.stop();
    EXPECT_GT(frames.load(), 15);
    EXPECT_EQ(redFrames.load(), 0) << "of " << frames.load() << " frames";
}

// With own windows hidden every window is drawn offscreen, and the display does not
// report a window that covers the whole screen moving into view (a white xmessage of
// another process, managed): still it shows.
TEST(OwnWindows, WhileHiddenAWindowCoveringTheScreenMovedIntoViewShows) {
    const std::string pidFile = ::testing::TempDir() + "lumenvale-curtain.pid";
    ASSERT_EQ(std::system(("xmessage -geometry 1920x1080+3000+0 -bg white curtain >/dev/null "
                           "2>&1 & echo $! >'" +
                           pidFile + "'")
                              .c_str()),
              0);
    const std::string curtain = "$(xdotool search --sync --class xmessage | head -n1)";
    ASSERT_EQ(std::system(("xdotool windowmove " + curtain + " 3000 0").c_str()), 0);
    CaughtCapture catcher(captureRequest(CaptureScreen{}, {1920, 1080}, OwnWindows::hidden));
    EXPECT_TRUE(catcher.waitFor([](const Picture& p) {
        return p.change == FrameChange::rows && p.changedRows.empty();
    })) << "the still screen";
    EXPECT_EQ(std::system(("xdotool windowmove " + curtain + " 0 0").c_str()), 0);
    EXPECT_TRUE(catcher.waitFor([](const Picture& p) {
        return near(p.at(960, 540), Colour{255, 255, 255}, 4);
    })) << "the window moved into view";
    catcher.capture.stop();
    EXPECT_EQ(std::system(("kill $(cat '" + pidFile + "')").c_str()), 0);
}

} // namespace
} // namespace lumenvale::testing
