// What a capture shows: known colours painted by windows on the test session's
// display, read back from the frames of a screen, an area and a window capture,
// at the movie sizes the recorder asks for.

#include "CaptureTestSupport.h"
#include "LumenvaleKit/OutputSize.h"
#include "LumenvaleMedia/CaptureX11.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <thread>

namespace lumenvale::testing {
namespace {

const Colour red{230, 20, 20};
const Colour green{20, 200, 40};
const Colour blue{30, 40, 220};

TEST(CaptureContent, AreaShowsTheWindowsUnderItAtItsOwnSize) {
    const x11::XConnection& connection = testConnection();
    TestWindow left(connection, {100, 100, 200, 200}, red, Management::unmanaged);
    TestWindow right(connection, {300, 100, 200, 200}, blue, Management::unmanaged);

    // An area of odd size: the movie is its even-sized part.
    const PixelSize movie = OutputSize::pixels({301, 151}, 1, Codec::h264);
    ASSERT_EQ(movie, (PixelSize{300, 150}));
    CaughtCapture catcher(captureRequest(CaptureArea{{150, 120, 301, 151}}, movie));
    const auto picture = catcher.waitFor([](const Picture& p) { return near(p.at(10, 10), red); });
    ASSERT_TRUE(picture) << "the red window never showed";
    EXPECT_EQ(picture->size, movie);
    EXPECT_TRUE(near(picture->at(140, 75), red)) << describe(picture->at(140, 75));
    EXPECT_TRUE(near(picture->at(160, 75), blue)) << describe(picture->at(160, 75));
    EXPECT_TRUE(near(picture->at(299, 149), blue));
    EXPECT_GE(catcher.capture.stats().delivered, 1);
}

// A still target is handed over again without being read, as the same picture; a
// window mapped over part of it marks only its rows: for an area (also with this
// process's windows hidden, where every window is drawn offscreen first) and for a
// window.
TEST(CaptureContent, StillTargetsAreNotReadAgainAndChangesMarkOnlyTheirRows) {
    const x11::XConnection& connection = testConnection();
    TestWindow backdrop(connection, {100, 100, 320, 240}, blue, Management::unmanaged);
    enum class Case { area, areaWithOwnWindowsHidden, window };
    for (const Case which : {Case::area, Case::areaWithOwnWindowsHidden, Case::window}) {
        SCOPED_TRACE(static_cast<int>(which));
        CaptureRequest request = captureRequest(
            CaptureArea{{100, 100, 320, 240}}, {320, 240},
            which == Case::areaWithOwnWindowsHidden ? OwnWindows::hidden : OwnWindows::shown,
            {backdrop.id()});
        if (which == Case::window) {
            request.target = CaptureWindow{backdrop.id()};
        }
        CaughtCapture catcher(request);
        ASSERT_TRUE(catcher.waitFor([](const Picture& p) {
            return near(p.at(160, 20), blue) && p.change == FrameChange::rows &&
                   p.changedRows.empty();
        })) << "frames of the still target say nothing changed";
        std::this_thread::sleep_for(300ms);
        EXPECT_GE(catcher.capture.stats().unchanged, 5) << "and were not read again";

        const std::int64_t top = 60 + 50 * static_cast<std::int64_t>(which);
        paintChild(connection, backdrop.id(), {0, top, 320, 20}, red);
        const auto changed =
            catcher.waitFor([&](const Picture& p) { return near(p.at(160, top + 10), red); });
        ASSERT_TRUE(changed);
        EXPECT_EQ(changed->change, FrameChange::rows);
        // The server may draw the new window over two frames: the row waited for is
        // marked in this one, and nothing outside the window in either.
        EXPECT_TRUE(changed->rowChanged(top + 10));
        EXPECT_FALSE(changed->rowChanged(top - 4) || changed->rowChanged(top + 24) ||
                     changed->rowChanged(10))
            << "only the rows of the new window";
        EXPECT_TRUE(near(changed->at(160, 20), blue));
        EXPECT_EQ(catcher.capture.stats().repeated, 0);
    }
}

TEST(CaptureContent, AreaPartlyOffTheDesktopIsBlackThere) {
    const x11::XConnection& connection = testConnection();
    TestWindow corner(connection, {1820, 980, 100, 100}, green, Management::unmanaged);
    CaughtCapture catcher(captureRequest(CaptureArea{{1800, 1000, 200, 100}}, {200, 100}));
    const auto picture =
        catcher.waitFor([](const Picture& p) { return near(p.at(50, 50), green); });
    ASSERT_TRUE(picture);
    EXPECT_TRUE(near(picture->at(119, 79), green));
    EXPECT_TRUE(near(picture->at(150, 50), {0, 0, 0}, 0)) << "right of the desktop's edge";
    EXPECT_TRUE(near(picture->at(50, 90), {0, 0, 0}, 0)) << "below the desktop's edge";
}

TEST(CaptureContent, ScreenAtFullSizeAndScaledDown) {
    const x11::XConnection& connection = testConnection();
    TestWindow window(connection, {960, 540, 480, 270}, green, Management::unmanaged);
    for (const PixelSize movie : {PixelSize{1920, 1080}, PixelSize{960, 540}}) {
        SCOPED_TRACE(movie.width);
        CaughtCapture catcher(captureRequest(CaptureScreen{"screen"}, movie));
        const double factor = static_cast<double>(movie.width) / 1920;
        auto scaled = [factor](double value) {
            return static_cast<std::int64_t>(value * factor);
        };
        const auto picture = catcher.waitFor(
            [&](const Picture& p) { return near(p.at(scaled(1200), scaled(675)), green); });
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->size, movie);
        EXPECT_TRUE(near(picture->at(scaled(970), scaled(550)), green));
        EXPECT_TRUE(near(picture->at(scaled(1430), scaled(800)), green));
        EXPECT_FALSE(near(picture->at(scaled(940), scaled(675)), green));
        EXPECT_FALSE(near(picture->at(scaled(1200), scaled(830)), green));
    }
}

TEST(CaptureContent, ScreenUnderThePointerIsChosenAtStart) {
    const x11::XConnection& connection = testConnection();
    TestMonitor monitor(connection, "LV-SMALL", {1600, 0, 320, 240});
    TestWindow window(connection, {1700, 100, 50, 50}, red, Management::unmanaged);
    warpPointer(connection, 1650, 50);
    CaughtCapture catcher(captureRequest(CaptureScreen{}, {320, 240}));
    const auto picture =
        catcher.waitFor([](const Picture& p) { return near(p.at(120, 120), red); });
    ASSERT_TRUE(picture) << "the small display's picture, with the window at its (100, 100)";
    EXPECT_FALSE(near(picture->at(90, 90), red));
    warpPointer(connection, 500, 500);
}

TEST(CaptureContent, WindowWithItsFrameWhileCoveredMovedAndResized) {
    const x11::XConnection& connection = testConnection();
    TestWindow window(connection, {400, 300, 320, 200}, blue, Management::managed);
    const auto info = findWindow(window.id());
    ASSERT_TRUE(info);
    const PixelSize movie = OutputSize::pixels(info->frame.size(), 1, Codec::h264);
    CaughtCapture catcher(captureRequest(CaptureWindow{window.id()}, movie));

    // The client fills the frame's lower part; the title bar is above it.
    const std::int64_t centreX = movie.width / 2;
    const std::int64_t lowY = movie.height - 20;
    auto showsWindow = [&](const Picture& p) {
        return near(p.at(centreX, lowY), blue);
    };
    const auto first = catcher.waitFor(showsWindow);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size, movie);
    EXPECT_FALSE(near(first->at(centreX, 2), blue)) << "the frame's title bar is included";

    // Covered by another window: still the window's own picture.
    const x11::PixelRect frame = {static_cast<std::int64_t>(info->frame.x),
                                  static_cast<std::int64_t>(info->frame.y), movie.width,
                                  movie.height};
    TestWindow cover(connection, {frame.x - 10, frame.y - 10, frame.width + 20, frame.height + 20},
                     red, Management::unmanaged);
    EXPECT_TRUE(catcher.waitFor(showsWindow)) << "covered";
    cover.destroy();

    // Moved: followed.
    window.move(900, 600);
    std::this_thread::sleep_for(150ms);
    const auto moved = findWindow(window.id());
    ASSERT_TRUE(moved);
    EXPECT_NE(moved->frame.x, info->frame.x);
    EXPECT_TRUE(catcher.waitFor(showsWindow)) << "moved";

    // Three times as wide: scaled to fit, centred between black bars above and below.
    window.resize(960, 200);
    const auto resized = catcher.waitFor([&](const Picture& p) {
        return near(p.at(centreX, movie.height / 2 + 10), blue) &&
               near(p.at(centreX, movie.height - 3), {0, 0, 0}, 0);
    });
    ASSERT_TRUE(resized) << "resized";
    EXPECT_EQ(resized->size, movie);
    EXPECT_TRUE(near(resized->at(centreX, 2), {0, 0, 0}, 0));
    catcher.capture.stop();
    EXPECT_EQ(catcher.stopCalls(), 0);
}

TEST(CaptureContent, WindowWithoutTheShadowItDrawsItself) {
    const x11::XConnection& connection = testConnection();
    // A client-side-decorated window: a 20-pixel red shadow around blue content.
    TestWindow window(connection, {500, 400, 300, 200}, red, Management::unmanaged);
    paintChild(connection, window.id(), {20, 20, 260, 160}, blue);
    setShadow(connection, window.id(), 20, 20, 20, 20);
    CaughtCapture catcher(captureRequest(CaptureWindow{window.id()}, {260, 160}));
    const auto picture =
        catcher.waitFor([](const Picture& p) { return near(p.at(130, 80), blue); });
    ASSERT_TRUE(picture);
    for (const auto& [x, y] :
         {std::pair{0, 0}, std::pair{259, 0}, std::pair{0, 159}, std::pair{259, 159}}) {
        EXPECT_TRUE(near(picture->at(x, y), blue)) << x << ", " << y << ": no shadow";
    }
}

} // namespace
} // namespace lumenvale::testing
