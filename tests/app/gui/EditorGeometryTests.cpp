// The layout rules of the editor's timeline and crop box.

#include "gui/editor/EditorGeometry.h"

#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

using namespace EditorGeometry;

TEST(EditorGeometry, TheTimelineFitsAnyEditAndItsMarksStayOnIt) {
    // An empty edit still lays out, as if 1 ms long.
    EXPECT_DOUBLE_EQ(timelineScale(800, 0), 800 / 0.001);
    EXPECT_DOUBLE_EQ(timelineScale(800, 8), 100);
    // The first step at least 64 points wide: at 10 points a second, 10 s.
    EXPECT_EQ(rulerStepSeconds(10), 10);
    EXPECT_EQ(rulerStepSeconds(64), 1);
    EXPECT_EQ(rulerStepSeconds(0.1), 1200); // one hour on about 360 points
    EXPECT_EQ(rulerStepSeconds(0.2), 600);
    // The 2-point playhead is centred on its time but never leaves the 400 points.
    EXPECT_DOUBLE_EQ(playheadX(2, 100, 400), 199);
    EXPECT_DOUBLE_EQ(playheadX(-1, 100, 400), 0);
    EXPECT_DOUBLE_EQ(playheadX(0, 100, 400), 0);
    EXPECT_DOUBLE_EQ(playheadX(9, 100, 400), 398);
}

TEST(EditorGeometry, FilmstripsShowTheMiddleOfEachSliceAndClicksTheTimeUnderThePointer) {
    const Clip clip = Clip::make(10, 16);
    EXPECT_EQ(filmstripTimes(clip, 216), (std::vector<double>{11, 13, 15}));
    EXPECT_EQ(filmstripTimes(clip, 8), (std::vector<double>{13})); // narrower than 72: one
    EditDecision edit(20);
    edit.split(4);
    edit.speed = 2;
    // The second clip (source 4 ... 20) starts at output 2 and lasts 8 s; a click a
    // quarter of the way in is 2 s of output later.
    EXPECT_DOUBLE_EQ(clipOutputTime(edit, 1, 100, 400), 4);
    EXPECT_DOUBLE_EQ(clipOutputTime(edit, 5, 100, 400), 0); // no such clip
}

TEST(EditorGeometry, CropCornersStopShortOfTheOppositeSideAndTheEdges) {
    const Rect crop{0.2, 0.2, 0.6, 0.6};
    // Dragged across the opposite corner: 0.05 short of it.
    const Rect crossed = resizeCrop(crop, CropCorner::topLeft, 0.9, 0.9);
    EXPECT_NEAR(crossed.x, 0.75, 1e-12);
    EXPECT_NEAR(crossed.width, 0.05, 1e-12);
    EXPECT_NEAR(crossed.height, 0.05, 1e-12);
    // Past the picture's edge: stops at it; the opposite sides stay.
    const Rect out = resizeCrop(crop, CropCorner::bottomRight, 0.5, -0.7);
    EXPECT_NEAR(out.x, 0.2, 1e-12);
    EXPECT_NEAR(out.width, 0.8, 1e-12);
    EXPECT_NEAR(out.y, 0.2, 1e-12);
    EXPECT_NEAR(out.height, 0.05, 1e-12);
    const Rect topRight = resizeCrop(crop, CropCorner::topRight, -0.1, -0.5);
    EXPECT_NEAR(topRight.y, 0, 1e-12);
    EXPECT_NEAR(topRight.height, 0.8, 1e-12);
    EXPECT_NEAR(topRight.width, 0.5, 1e-12);
}

TEST(EditorGeometry, ACropPushedAgainstAnEdgeSlidesAlongItKeepingItsSize) {
    const Rect moved = clampCrop({0.7, -0.2, 0.5, 0.4});
    EXPECT_NEAR(moved.x, 0.5, 1e-12);
    EXPECT_NEAR(moved.x + moved.width, 1, 1e-12);
    EXPECT_NEAR(moved.y, 0, 1e-12);
    EXPECT_NEAR(moved.height, 0.4, 1e-12);
    const Rect tiny = clampCrop({0.99, 0.5, 0.001, 3});
    EXPECT_NEAR(tiny.width, 0.05, 1e-12);
    EXPECT_NEAR(tiny.x, 0.95, 1e-12);
    EXPECT_NEAR(tiny.height, 1, 1e-12);
    EXPECT_NEAR(tiny.y, 0, 1e-12);
}

} // namespace
} // namespace lumenvale::testing
