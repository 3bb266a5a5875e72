// Pacing, the pointer and clicks, checked on frames of a real capture.

#include "CaptureTestSupport.h"
#include "LumenvaleMedia/CaptureX11.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

const Colour grey{128, 128, 128};
const Colour dark{16, 16, 16};

CaptureRequest areaRequest(x11::PixelRect area, bool pointer, bool clicks) {
    CaptureRequest request =
        captureRequest(CaptureArea{x11::toRect(area)}, {area.width, area.height});
    request.showsPointer = pointer;
    request.showsClicks = clicks;
    return request;
}

TEST(CapturePacing, FramesFollowTheScheduleWithoutGapsOrDrift) {
    FrameCatcher catcher;
    CaptureX11 capture(areaRequest({0, 0, 640, 360}, false, false));
    const auto before = std::chrono::steady_clock::now();
    capture.start(catcher.frames(), catcher.stopped());
    std::this_thread::sleep_for(1050ms);
    capture.stop();
    const std::size_t afterStop = catcher.indexes().size();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(catcher.indexes().size(), afterStop) << "nothing is delivered after stop() returns";

    const std::vector<std::int64_t> indexes = catcher.indexes();
    const auto times = catcher.times();
    const CaptureStats stats = capture.stats();
    ASSERT_GE(indexes.size(), 20u);
    EXPECT_EQ(indexes.front(), 0);
    // About 1.05 s at 30 fps: frame numbers 0 to 31 were due, whatever the load.
    EXPECT_GE(indexes.back(), 29);
    EXPECT_LE(indexes.back(), 33);
    EXPECT_TRUE(std::is_sorted(indexes.begin(), indexes.end()));
    EXPECT_EQ(std::adjacent_find(indexes.begin(), indexes.end()), indexes.end()) << "no repeats";
    EXPECT_EQ(stats.delivered, static_cast<std::int64_t>(indexes.size()));
    EXPECT_EQ(stats.delivered + stats.dropped, indexes.back() + 1)
        << "every number up to the last was delivered or dropped";
    EXPECT_EQ(stats.repeated, 0);

    // Frame n stands for start + n / 30 s, however late it was picked up: its time
    // is that moment exactly (to the nanosecond rounding of n / 30 s), so the first
    // frame of a part anchors the part's sound where its picture sits in the movie.
    EXPECT_GE(times.front(), before.time_since_epoch());
    const auto start =
        times.front() - std::chrono::nanoseconds(indexes.front() * 1'000'000'000 / 30);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const auto expected = start + std::chrono::nanoseconds(indexes[i] * 1'000'000'000 / 30);
        EXPECT_LE(std::chrono::abs(times[i] - expected), 1us) << "frame " << indexes[i];
    }
}

// Pixels of a box around (x, y) that differ from `colour`.
int differing(const Picture& picture, std::int64_t x, std::int64_t y, std::int64_t radius,
              const Colour& colour) {
    return countAround(picture, x, y, radius, [&](const Colour& c) { return !near(c, colour, 2); });
}

// The pointer, when asked for, is drawn where it is and nowhere else, and follows it.
TEST(CaptureOverlay, PointerFollowsItsMoves) {
    const x11::XConnection& connection = testConnection();
    const x11::PixelRect area{200, 200, 320, 240};
    TestWindow backdrop(connection, area, grey, Management::unmanaged);
    warpPointer(connection, 260, 260);
    CaughtCapture catcher(areaRequest(area, true, false));
    const auto first =
        catcher.waitFor([](const Picture& p) { return differing(p, 60, 60, 16, grey) > 20; });
    ASSERT_TRUE(first);
    EXPECT_EQ(differing(*first, 260, 180, 16, grey), 0);
    warpPointer(connection, 460, 380);
    const auto moved =
        catcher.waitFor([](const Picture& p) { return differing(p, 260, 180, 16, grey) > 20; });
    ASSERT_TRUE(moved);
    EXPECT_EQ(differing(*moved, 60, 60, 16, grey), 0);
    // Only the rows of its old and new places are said to have changed.
    ASSERT_EQ(moved->change, FrameChange::rows);
    EXPECT_TRUE(moved->rowChanged(62) && moved->rowChanged(182)) << "the old and the new place";
    EXPECT_FALSE(moved->rowChanged(120) || moved->rowChanged(4) || moved->rowChanged(230))
        << "not the rows between, above or below";
    // Resting, the pointer changes nothing: the frames after are the same picture.
    const auto resting = catcher.waitFor([](const Picture& p) { return p.changedRows.empty(); });
    ASSERT_TRUE(resting);
    EXPECT_EQ(resting->change, FrameChange::rows);
    EXPECT_GT(differing(*resting, 260, 180, 16, grey), 20) << "still drawn where it rests";
}

bool amber(const Colour& colour) {
    return colour.red > 180 && colour.green > 100 && colour.green < 220 && colour.blue < 90;
}

int amberPixels(const Picture& picture, std::int64_t x, std::int64_t y, std::int64_t radius) {
    return countAround(picture, x, y, radius, amber);
}

// Neither the pointer nor clicks are drawn unless asked for.
TEST(CaptureOverlay, NothingIsDrawnWhenNotAsked) {
    const x11::XConnection& connection = testConnection();
    const x11::PixelRect area{200, 200, 320, 240};
    TestWindow backdrop(connection, area, dark, Management::unmanaged);
    warpPointer(connection, 360, 320);
    CaughtCapture catcher(areaRequest(area, false, false));
    const auto picture = catcher.waitFor([](const Picture& p) { return near(p.at(10, 10), dark); });
    ASSERT_TRUE(picture);
    EXPECT_EQ(differing(*picture, 160, 120, 16, dark), 0) << "no pointer";
    ASSERT_EQ(std::system("xdotool click 1"), 0);
    EXPECT_FALSE(
        catcher.waitFor([](const Picture& p) { return amberPixels(p, 160, 120, 30) > 0; }, 400ms))
        << "no click ring";
}

TEST(CaptureOverlay, ClickShowsAFadingRingAtThePointer) {
    const x11::XConnection& connection = testConnection();
    const x11::PixelRect area{200, 200, 320, 240};
    TestWindow backdrop(connection, area, dark, Management::unmanaged);
    warpPointer(connection, 360, 320);
    CaughtCapture catcher(areaRequest(area, false, true));
    const auto before = catcher.waitFor([](const Picture& p) { return near(p.at(10, 10), dark); });
    ASSERT_TRUE(before);
    EXPECT_EQ(amberPixels(*before, 160, 120, 30), 0) << "no ring before the click";

    ASSERT_EQ(std::system("xdotool click 1"), 0);
    const auto ring =
        catcher.waitFor([](const Picture& p) { return amberPixels(p, 160, 120, 30) > 40; }, 1000ms);
    ASSERT_TRUE(ring) << "a ring around the pointer";
    EXPECT_TRUE(ring->rowChanged(120 - 20) && ring->rowChanged(120 + 20)) << "the ring's rows";
    EXPECT_FALSE(ring->rowChanged(40)) << "and no others";
    EXPECT_EQ(amberPixels(*ring, 160, 120, 8), 0) << "a ring, not a disc";
    EXPECT_EQ(amberPixels(*ring, 60, 60, 20), 0) << "only where the pointer is";
    EXPECT_TRUE(
        catcher.waitFor([](const Picture& p) { return amberPixels(p, 160, 120, 30) == 0; }, 1000ms))
        << "the ring fades away";
}

} // namespace
} // namespace lumenvale::testing
