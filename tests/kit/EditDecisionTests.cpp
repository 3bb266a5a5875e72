#include "LumenvaleKit/EditDecision.h"

#include <gtest/gtest.h>
#include <limits>

namespace lumenvale {
namespace {

// Clips 0-4, 6-10 of a 12 s source (a cut at 4-6 and at the tail).
EditDecision twoClips(double speed = 1) {
    EditDecision edit(12);
    edit.clips = {Clip::make(0, 4), Clip::make(6, 10)};
    edit.speed = speed;
    return edit;
}

TEST(EditDecision, FreshEditAndPassthrough) {
    const EditDecision fresh(10);
    ASSERT_EQ(fresh.clips.size(), 1u);
    EXPECT_EQ(fresh.clips[0].start, 0);
    EXPECT_EQ(fresh.clips[0].end, 10);
    EXPECT_EQ(fresh.outputDuration(), 10);
    EXPECT_TRUE(fresh.isPassthrough());
    EXPECT_NE(EditDecision(10).clips[0].id, fresh.clips[0].id);

    EditDecision edit = twoClips();
    EXPECT_TRUE(edit.isPassthrough());
    edit.volumes[2] = 1;
    EXPECT_TRUE(edit.isPassthrough());
    EXPECT_EQ(edit.volume(2), 1);
    EXPECT_EQ(edit.volume(7), 1);
    edit.volumes[1] = 0.5;
    EXPECT_EQ(edit.volume(1), 0.5);
    EXPECT_FALSE(edit.isPassthrough());
    edit.volumes.erase(1);
    edit.crop = Rect{0, 0, 1, 1};
    EXPECT_FALSE(edit.isPassthrough());
    edit.crop.reset();
    edit.speed = 2;
    EXPECT_FALSE(edit.isPassthrough());
    EXPECT_EQ(edit.outputDuration(), 4);
    EXPECT_EQ(edit.clipStarts(), (std::vector<double>{0, 2}));
    EXPECT_TRUE(EditDecision().clipStarts().empty());
}

TEST(EditDecision, LocateAndOutputTime) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double speed;
        double output;
        Location expected;
    } locations[] = {
        {1, -3, {0, 0}}, {1, nan, {0, 0}}, {1, 1.5, {0, 1.5}}, {1, 4, {1, 6}},
        {1, 5, {1, 7}},  {1, 8, {1, 10}},  {1, 99, {1, 10}},   {2, 1, {0, 2}},
        {2, 2, {1, 6}},  {2, 3, {1, 8}},   {2, 4, {1, 10}},
    };
    for (const auto& c : locations) {
        EXPECT_EQ(twoClips(c.speed).locate(c.output), c.expected) << c.speed << " " << c.output;
    }
    EXPECT_EQ(EditDecision().locate(3), (Location{0, 0}));

    const struct {
        double speed;
        double source;
        std::optional<double> expected;
    } outputs[] = {
        {1, 0, 0},
        {1, 4, 4},
        {1, 5, std::nullopt},
        {1, 6, 4},
        {1, 10, 8},
        {1, 11, std::nullopt},
        {2, 8, 3},
        {1, -1, std::nullopt},
    };
    for (const auto& c : outputs) {
        EXPECT_EQ(twoClips(c.speed).outputTime(c.source), c.expected) << c.source;
    }
    // Adjacent clips: the shared edge maps into the earlier clip.
    EditDecision adjacent(10);
    ASSERT_TRUE(adjacent.split(4));
    EXPECT_EQ(adjacent.outputTime(4), 4);
    EXPECT_EQ(adjacent.locate(4), (Location{1, 4}));
}

TEST(EditDecision, SplitAndDelete) {
    EditDecision edit(10);
    const Uuid first = edit.clips[0].id;
    ASSERT_TRUE(edit.split(3));
    ASSERT_EQ(edit.clips.size(), 2u);
    EXPECT_EQ(edit.clips[0], (Clip{first, 0, 3}));
    EXPECT_EQ(edit.clips[1].start, 3);
    EXPECT_EQ(edit.clips[1].end, 10);
    EXPECT_NE(edit.clips[1].id, first);

    const EditDecision before = edit;
    for (double refused : {3.0, 0.05, 9.95, 3.05, 2.95, 0.0, 10.0}) {
        EXPECT_FALSE(edit.split(refused)) << refused;
        EXPECT_EQ(edit, before);
    }
    EXPECT_TRUE(edit.split(0.1));
    EXPECT_EQ(edit.clips[1].start, 0.1);

    EditDecision cut = twoClips();
    EXPECT_FALSE(cut.deleteClip(Uuid::random()));
    EXPECT_TRUE(cut.deleteClip(cut.clips[0].id));
    EXPECT_EQ(cut.outputDuration(), 4);
    EXPECT_EQ(cut.clips[0].start, 6);
    EXPECT_FALSE(cut.deleteClip(cut.clips[0].id));
    EXPECT_EQ(cut.clips.size(), 1u);
}

TEST(EditDecision, TrimKeepsNeighboursSourceAndMinimumLength) {
    const struct {
        std::size_t clip;
        std::optional<double> start, end;
        double newStart, newEnd;
    } cases[] = {
        {1, 2.0, std::nullopt, 4, 10}, // stops at the previous clip's end
        {1, 5.0, 9.0, 5, 9},
        {1, 9.99, std::nullopt, 9.9, 10}, // minimum length
        {1, std::nullopt, 99.0, 6, 12},   // stops at the source's end
        {1, std::nullopt, 6.01, 6, 6.1},
        {0, -5.0, 5.0, 0, 5.0}, // stops at 0; the end may not reach the next clip
        {0, std::nullopt, 7.0, 0, 6},
        {0, 3.0, 1.0, 3, 3.1}, // the new start counts for the end's minimum
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
        {{0.25, 0.1, 0.5, 0.5}, {1920, 1080}, {480, 108, 960, 540}},
        {{0, 0, 1, 1}, {1921, 1081}, {0, 0, 1920, 1080}},
        {{1, 0, 0.5, 1}, {1921, 1080}, {1920, 0, 2, 1080}}, // 2 pixels, past the edge
        {{0.75, 0.5, -0.5, -0.5}, {1000, 1000}, {250, 0, 500, 500}},
        {{-1, 2, 0, 0.001}, {1000, 1000}, {0, 1000, 2, 2}},
        {{std::numeric_limits<double>::quiet_NaN(), 0, 0.5, 0.5}, {100, 100}, {0, 0, 50, 50}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(EditDecision::cropPixels(c.crop, c.video), c.pixels);
    }
    EXPECT_EQ(EditDecision::centeredCrop(16.0 / 9, {1920, 1080}), (Rect{0, 0, 1, 1}));
    EXPECT_EQ(EditDecision::centeredCrop(1, {2000, 1000}), (Rect{0.25, 0, 0.5, 1}));
    EXPECT_EQ(EditDecision::centeredCrop(2, {1000, 1000}), (Rect{0, 0.25, 1, 0.5}));
}

TEST(EditDecisionDeathTest, CropOfAnEnormousVideoStops) {
    // The width of this video is 2^63 as a double: one past the signed 64-bit range.
    EXPECT_DEATH(EditDecision::cropPixels({0, 0, 1, 1}, {9223372036854775807, 2}), "crop width");
    EXPECT_DEATH(EditDecision::cropPixels({0, 0, 1, 1}, {2, 9223372036854775807}), "crop height");
}

TEST(GIFPlan, Times) {
    const auto twoSeconds = GIFPlan::times(2, 10, 30);
    ASSERT_EQ(twoSeconds.size(), 20u);
    EXPECT_EQ(twoSeconds.front(), 0);
    EXPECT_DOUBLE_EQ(twoSeconds.back(), 1.9);
    const auto long45 = GIFPlan::times(45, 10, 30);
    ASSERT_EQ(long45.size(), 300u);
    EXPECT_DOUBLE_EQ(long45.back(), 29.9);
    for (std::size_t k = 0; k < long45.size(); ++k) {
        EXPECT_EQ(long45[k], static_cast<double>(k) / 10);
    }
    EXPECT_EQ(GIFPlan::times(0.05, 10, 30), std::vector<double>{0});
    EXPECT_EQ(GIFPlan::times(0, 10, 30), std::vector<double>{0});
    EXPECT_EQ(GIFPlan::times(0.39, 10, 30).size(), 3u);
}

TEST(GIFPlanDeathTest, NonFiniteCountStops) {
    EXPECT_DEATH(GIFPlan::times(30, std::numeric_limits<double>::quiet_NaN(), 30), "GIF");
    EXPECT_DEATH(GIFPlan::times(30, 1e300, 30), "GIF");
}

} // namespace
} // namespace lumenvale
