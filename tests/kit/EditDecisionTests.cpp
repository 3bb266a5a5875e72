#include "LumenvaleKit/EditDecision.h"

#include <gtest/gtest.h>
#include <limits>

namespace lumenvale {
namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();
const std::optional<double> none;

// Clips 0-4 and 6-10 of a 12 s source.
EditDecision twoClips(double speed = 1) {
    EditDecision edit(12);
    edit.clips = {Clip::make(0, 4), Clip::make(6, 10)};
    edit.speed = speed;
    return edit;
}

TEST(EditDecision, FreshEditDurationsAndPassthrough) {
    const EditDecision fresh(10);
    EXPECT_EQ(fresh.clips, (std::vector<Clip>{{fresh.clips[0].id, 0, 10}}));
    EXPECT_NE(EditDecision(10).clips[0].id, fresh.clips[0].id);
    EXPECT_EQ(fresh.outputDuration(), 10);
    EXPECT_TRUE(fresh.isPassthrough());

    EditDecision edit = twoClips();
    edit.volumes[2] = 1;
    EXPECT_TRUE(edit.isPassthrough());
    edit.volumes[1] = 0.5;
    EXPECT_EQ(edit.volume(1), 0.5);
    EXPECT_EQ(edit.volume(7), 1);
    EXPECT_FALSE(edit.isPassthrough());
    edit.volumes.erase(1);
    edit.crop = Rect{0, 0, 1, 1};
    EXPECT_FALSE(edit.isPassthrough());
    edit.crop.reset();
    edit.speed = 2;
    EXPECT_FALSE(edit.isPassthrough());
    EXPECT_EQ(edit.outputDuration(), 4);
    EXPECT_EQ(edit.clipStarts(), (std::vector<double>{0, 2}));
}

TEST(EditDecision, LocateAndOutputTime) {
    const struct {
        double speed, output;
        Location expected;
    } locations[] = {
        // clang-format off
        {1, -3, {0, 0}}, {1, nan, {0, 0}}, {1, 1.5, {0, 1.5}}, {1, 4, {1, 6}}, {1, 5, {1, 7}},
        {1, 8, {1, 10}}, {1, 99, {1, 10}}, {2, 1, {0, 2}},     {2, 2, {1, 6}}, {2, 4, {1, 10}},
        // clang-format on
    };
    for (const auto& c : locations) {
        EXPECT_EQ(twoClips(c.speed).locate(c.output), c.expected) << c.speed << " " << c.output;
    }
    EXPECT_EQ(EditDecision().locate(3), (Location{0, 0}));
    const struct {
        double speed, source;
        std::optional<double> expected;
    } outputs[] = {{1, 0, 0},  {1, 4, 4},     {1, 5, none},  {1, 6, 4},
                   {1, 10, 8}, {1, 11, none}, {1, -1, none}, {2, 8, 3}};
    for (const auto& c : outputs) {
        EXPECT_EQ(twoClips(c.speed).outputTime(c.source), c.expected) << c.source;
    }
    // Adjacent clips: output time maps to the later clip, source time to the earlier.
    EditDecision adjacent(10);
    ASSERT_TRUE(adjacent.split(4));
    EXPECT_EQ(adjacent.outputTime(4), 4);
    EXPECT_EQ(adjacent.locate(4), (Location{1, 4}));
}

TEST(EditDecision, SplitAndDelete) {
    EditDecision edit(10);
    const Uuid first = edit.clips[0].id;
    ASSERT_TRUE(edit.split(3));
    EXPECT_EQ(edit.clips, (std::vector<Clip>{{first, 0, 3}, {edit.clips[1].id, 3, 10}}));
    EXPECT_NE(edit.clips[1].id, first);
    const EditDecision before = edit;
    for (double refused : {3.0, 0.05, 9.95, 3.05, 2.95, 0.0, 10.0}) {
        EXPECT_FALSE(edit.split(refused)) << refused;
        EXPECT_EQ(edit, before);
    }
    EXPECT_TRUE(edit.split(0.1));
    EXPECT_FALSE(EditDecision().split(0));

    EditDecision cut = twoClips();
    EXPECT_FALSE(cut.deleteClip(Uuid::random()));
    EXPECT_TRUE(cut.deleteClip(cut.clips[0].id));
    EXPECT_EQ(cut.outputDuration(), 4);
    EXPECT_FALSE(cut.deleteClip(cut.clips[0].id));
    EXPECT_EQ(cut.clips.size(), 1u);
}

TEST(EditDecision, TrimKeepsNeighboursSourceAndMinimumLength) {
    const struct {
        std::size_t clip;
        std::optional<double> start, end;
        double newStart, newEnd;
    } cases[] = {
        // clang-format off
        {1, 2.0, none, 4, 10},    {1, 5.0, 9.0, 5, 9},   {1, 9.99, none, 9.9, 10},
        {1, none, 99.0, 6, 12},   {1, none, 6.01, 6, 6.1}, {0, -5.0, 5.0, 0, 5.0},
        {0, none, 7.0, 0, 6},     {0, 3.0, 1.0, 3, 3.1},  // end's minimum from the new start
        // clang-format on
    };
    for (const auto& c : cases) {
        EditDecision edit = twoClips();
        const EditDecision before = edit;
        edit.trim(edit.clips[c.clip].id, c.start, c.end);
        EXPECT_EQ(edit.clips[c.clip].id, before.clips[c.clip].id);
        EXPECT_DOUBLE_EQ(edit.clips[c.clip].start, c.newStart);
        EXPECT_DOUBLE_EQ(edit.clips[c.clip].end, c.newEnd);
        EXPECT_EQ(edit.clips[1 - c.clip], before.clips[1 - c.clip]);
    }
    EditDecision edit = twoClips();
    const EditDecision before = edit;
    edit.trim(Uuid::random(), 0.0, 12.0);
    EXPECT_EQ(edit, before);
}

TEST(EditDecision, CropPixelsAndCenteredCrop) {
    const struct {
        Rect crop;
        PixelSize video;
        Rect pixels;
    } cases[] = {
        // clang-format off
        {{0.25, 0.1, 0.5, 0.5}, {1920, 1080}, {480, 108, 960, 540}},
        {{0, 0, 1, 1}, {1921, 1081}, {0, 0, 1920, 1080}},
        {{1, 0, 0.5, 1}, {1921, 1080}, {1920, 0, 2, 1080}},  // 2 pixels, past the edge
        {{0.75, 0.5, -0.5, -0.5}, {1000, 1000}, {250, 0, 500, 500}},
        {{-1, 2, 0, 0.001}, {1000, 1000}, {0, 1000, 2, 2}},
        {{nan, 0, 0.5, 0.5}, {100, 100}, {0, 0, 50, 50}},
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(EditDecision::cropPixels(c.crop, c.video), c.pixels);
    }
    EXPECT_EQ(EditDecision::centeredCrop(16.0 / 9, {1920, 1080}), (Rect{0, 0, 1, 1}));
    EXPECT_EQ(EditDecision::centeredCrop(1, {2000, 1000}), (Rect{0.25, 0, 0.5, 1}));
    EXPECT_EQ(EditDecision::centeredCrop(2, {1000, 1000}), (Rect{0, 0.25, 1, 0.5}));
}

TEST(GIFPlan, Times) {
    const auto first30 = GIFPlan::times(45, 10, 30);
    ASSERT_EQ(first30.size(), 300u);
    for (std::size_t k = 0; k < first30.size(); ++k) {
        EXPECT_EQ(first30[k], static_cast<double>(k) / 10);
    }
    EXPECT_EQ(GIFPlan::times(2, 10, 30).size(), 20u);
    EXPECT_EQ(GIFPlan::times(0.05, 10, 30), std::vector<double>{0});
    EXPECT_EQ(GIFPlan::times(0.39, 10, 30).size(), 3u);
}

TEST(EditDecisionDeathTest, FatalConversionsStop) {
    // 9223372036854775807 becomes 2^63 as a double: one past the signed 64-bit range.
    EXPECT_DEATH(EditDecision::cropPixels({0, 0, 1, 1}, {9223372036854775807, 2}), "crop width");
    EXPECT_DEATH(EditDecision::cropPixels({0, 0, 1, 1}, {2, 9223372036854775807}), "crop height");
    EXPECT_DEATH(GIFPlan::times(30, nan, 30), "GIF");
    EXPECT_DEATH(GIFPlan::times(30, 1e300, 30), "GIF");
}

} // namespace
} // namespace lumenvale
