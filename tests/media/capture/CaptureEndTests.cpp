// How a capture ends: by itself when its window is destroyed or its display is
// disconnected (the stopped handler, once, with the user-facing reason), and not at
// all when its target is missing at the start.

#include "CaptureTestSupport.h"
#include "Harness.h"
#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/MediaError.h"

#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

TEST(CaptureEnd, WindowClosedStopsTheCaptureOnce) {
    const x11::XConnection& connection = testConnection();
    auto window = std::make_unique<TestWindow>(connection, x11::PixelRect{300, 300, 200, 100},
                                               Colour{200, 100, 0}, Management::managed);
    CaughtCapture catcher(captureRequest(CaptureWindow{window->id()}, {200, 100}));
    ASSERT_TRUE(catcher.next());
    window.reset();
    EXPECT_EQ(catcher.waitStopped(2000ms), "The window closed.");
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(catcher.stopCalls(), 1);
    EXPECT_EQ(catcher.framesAfterStop(), 0);
    catcher.capture.stop();
    catcher.capture.stop(); // idempotent
    EXPECT_EQ(catcher.stopCalls(), 1);
}

TEST(CaptureEnd, MinimizedWindowRepeatsItsLastPicture) {
    const x11::XConnection& connection = testConnection();
    const Colour orange{200, 100, 0};
    TestWindow window(connection, {300, 300, 200, 100}, orange, Management::unmanaged);
    CaughtCapture catcher(captureRequest(CaptureWindow{window.id()}, {200, 100}));
    ASSERT_TRUE(catcher.waitFor([&](const Picture& p) { return near(p.at(100, 50), orange); }));
    xcb_unmap_window(connection.get(), window.id());
    connection.flush();
    std::this_thread::sleep_for(300ms);
    const CaptureStats stats = catcher.capture.stats();
    EXPECT_GT(stats.repeated, 3) << "frames while unmapped are the previous picture again";
    const auto picture = catcher.next();
    ASSERT_TRUE(picture);
    EXPECT_TRUE(near(picture->at(100, 50), orange));
    EXPECT_EQ(catcher.stopCalls(), 0) << "a hidden window has not closed";

    // Shown again, in another colour: read afresh.
    const Colour green{0, 180, 0};
    const std::uint32_t background = green.pixel();
    xcb_change_window_attributes(connection.get(), window.id(), XCB_CW_BACK_PIXEL, &background);
    xcb_map_window(connection.get(), window.id());
    connection.flush();
    EXPECT_TRUE(catcher.waitFor([&](const Picture& p) { return near(p.at(100, 50), green); }));
}

TEST(CaptureEnd, DisplayDisconnectedStopsTheCapture) {
    const x11::XConnection& connection = testConnection();
    auto monitor =
        std::make_unique<TestMonitor>(connection, "LV-GONE", x11::PixelRect{0, 0, 640, 480});
    CaughtCapture catcher(captureRequest(CaptureScreen{"LV-GONE"}, {640, 480}));
    ASSERT_TRUE(catcher.next());
    monitor.reset();
    EXPECT_EQ(catcher.waitStopped(2000ms), "The display is gone.");
    EXPECT_EQ(catcher.framesAfterStop(), 0);
}

// Missing targets with the user-facing reason; requests no capture can serve as well.
TEST(CaptureEnd, MissingTargetsAndInvalidRequestsRefuseToStart) {
    struct Case {
        CaptureTarget target;
        std::optional<RecError> error;
        int fps = 30;
        PixelSize size{100, 100};
    } cases[] = {
        {CaptureScreen{"NO-SUCH-OUTPUT"}, RecError::displayGone},
        {CaptureArea{{5000, 5000, 100, 100}}, RecError::displayGone},
        {CaptureWindow{0x7ffffff}, RecError::windowGone},
        {CaptureScreen{}, std::nullopt, 0},
        {CaptureScreen{}, std::nullopt, 30, {0, 100}},
    };
    for (const Case& c : cases) {
        CaptureRequest request = captureRequest(c.target, c.size);
        request.fps = c.fps;
        CaptureX11 capture(request);
        const auto error = thrown<MediaError>([&] { capture.start(nullptr, nullptr); });
        ASSERT_TRUE(error) << "started";
        if (c.error) {
            EXPECT_EQ(error->recError, c.error);
            EXPECT_EQ(error->what(), std::string(message(*c.error)));
        }
        EXPECT_EQ(capture.stats().delivered, 0);
    }
}

} // namespace
} // namespace lumenvale::testing
