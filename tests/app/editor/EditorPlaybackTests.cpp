#include "EditorTestSupport.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace lumenvale::testing {
namespace {

using Kind = PreviewPlayerNull::CallKind;
using Call = PreviewPlayerNull::Call;

// One 3-second recording shared by the playback tests (they never change its edit
// except where a test says so, and each gets its own model).
class EditorPlayback : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder = new TemporaryFolder;
        makeClip(*folder / "Recording.mp4", 3);
    }
    static void TearDownTestSuite() {
        delete folder;
        folder = nullptr;
    }
    void SetUp() override {
        auto loaded = loadModel(*folder / "Recording.mp4");
        ASSERT_TRUE(loaded.model) << loaded.error.toStdString();
        model = std::move(loaded.model);
        ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
        end = model->edit().outputDuration();
        player().clearCalls();
    }
    PreviewPlayerNull& player() { return nullPlayer(*model); }

    static TemporaryFolder* folder;
    std::unique_ptr<EditorModel> model;
    double end = 0;
};
TemporaryFolder* EditorPlayback::folder = nullptr;

TEST_F(EditorPlayback, PlayAtTheEndStartsAgainFromTheBeginning) {
    model->seek(end - 0.04); // within the last 0.05 s counts as the end
    player().clearCalls();
    model->togglePlay();
    EXPECT_EQ(player().calls(), (std::vector<Call>{{Kind::seek, 0, {}}, {Kind::play, 0, {}}}));
    EXPECT_EQ(model->time(), 0);
    EXPECT_TRUE(model->isPlaying());

    player().clearCalls();
    model->togglePlay();
    EXPECT_EQ(player().calls(), (std::vector<Call>{{Kind::pause, 0, {}}}));
    EXPECT_FALSE(model->isPlaying());

    // From the middle, play just plays.
    model->seek(1);
    player().clearCalls();
    model->togglePlay();
    EXPECT_EQ(player().calls(), (std::vector<Call>{{Kind::play, 0, {}}}));
    EXPECT_EQ(model->time(), 1);
}

TEST_F(EditorPlayback, SeekAndStepStayInsideTheEdit) {
    struct Case {
        const char* name;
        double from;
        std::optional<int> stepFrames; // nothing: seek to `target`
        double target;
        double expected; // negative: the end of the edit
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Case cases[] = {
        {"seek before the start", 1, std::nullopt, -5, 0},
        {"seek past the end", 1, std::nullopt, 100, -1},
        {"seek to not a number", 1, std::nullopt, nan, 0},
        {"step back from the start", 0, -1, 0, 0},
        {"step past the end", -1, 3, 0, -1},
        {"one frame forward", 1, 1, 0, 1 + 1.0 / 30},
        {"ten frames back", 2, -10, 0, 2 - 10.0 / 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model->seek(c.from < 0 ? end : c.from);
        player().clearCalls();
        if (c.stepFrames) {
            model->step(*c.stepFrames);
        } else {
            model->seek(c.target);
        }
        const double expected = c.expected < 0 ? end : c.expected;
        EXPECT_NEAR(model->time(), expected, 1e-9);
        ASSERT_FALSE(player().calls().empty());
        EXPECT_EQ(player().calls().back().kind, Kind::seek);
        EXPECT_NEAR(player().calls().back().seconds, expected, 1e-9);
        if (c.stepFrames) {
            EXPECT_EQ(player().calls().front().kind, Kind::pause); // a step pauses first
            EXPECT_FALSE(model->isPlaying());
        }
    }
}

TEST_F(EditorPlayback, ThePlayheadFollowsAPlayingPlayerUntilItStops) {
    model->togglePlay();
    player().simulate(1.25, 1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->time() == 1.25; }, 2000));
    EXPECT_TRUE(model->isPlaying());

    // The player stopped by itself at the end: playback shows as stopped.
    player().simulate(end, 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model->isPlaying(); }, 2000));

    // A paused player's position is not copied: the playhead is the model's own.
    model->seek(0.5);
    player().simulate(2, 0);
    QTest::qWait(100);
    EXPECT_EQ(model->time(), 0.5);
}

TEST_F(EditorPlayback, PlaybackGoesOnAfterTheEditChanges) {
    model->seek(1);
    model->togglePlay();
    player().clearCalls();
    model->change([](EditDecision& edit) { edit.speed = 2; });
    ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
    const auto& calls = player().calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].kind, Kind::setPreview);
    EXPECT_EQ(calls[1], (Call{Kind::seek, 1, {}}));
    EXPECT_EQ(calls[2].kind, Kind::play);
}

} // namespace
} // namespace lumenvale::testing
