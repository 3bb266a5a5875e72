// The preview through libmpv, drawn by a PreviewSurface in a real window (Mesa's
// OpenGL under the session's X server), sound to the session's PulseAudio.

#include "EditorTestSupport.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "gui/editor/PreviewPlayerMpv.h"
#include "gui/editor/PreviewSurface.h"

#include <QImage>
#include <QQuickWindow>
#include <array>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

// Each frame is split into quadrants that carry the frame's index n as 20 + 2n in one
// channel (top-left red, top-right green, bottom-left blue, bottom-right red and blue)
// and 40 in the others, so a picture tells which frame it is and which part of it shows.
constexpr const char* quadrantFrames =
    "-f lavfi -i \"color=c=black:s=320x240:r=30:d=3,format=rgb24,geq="
    "r='if(lt(X,W/2),if(lt(Y,H/2),20+2*N,40),if(lt(Y,H/2),40,20+2*N))':"
    "g='if(lt(X,W/2),40,if(lt(Y,H/2),20+2*N,40))':"
    "b='if(lt(Y,H/2),40,20+2*N)'\" "
    "-f lavfi -i sine=frequency=440:sample_rate=48000:d=3 "
    "-c:v libx264 -pix_fmt yuv420p -g 30 -c:a aac -shortest";

constexpr int frameTimeoutMs = 20000;

// The frame index a channel value carries; -1 when it carries none (the 40 of the
// other channels, or black).
int frameIndex(int channel) {
    return channel < 19 || std::abs(channel - 40) <= 4
               ? -1
               : static_cast<int>(std::lround((channel - 20) / 2.0));
}

// What one point of the window shows: which channel carries an index, and which.
struct Seen {
    char channel = '-'; // 'r', 'g', 'b' (red and blue: 'm'), '-' for none
    int frame = -1;
};

// Equal up to one frame: the colours of a compressed picture may round to a neighbour's
// value, while every wrong frame this checks for (a keyframe, the other side of a cut,
// the last preview's) lies many frames away.
bool matches(const std::array<Seen, 4>& shown, const std::array<Seen, 4>& wanted) {
    for (std::size_t point = 0; point < shown.size(); ++point) {
        if (shown[point].channel != wanted[point].channel ||
            std::abs(shown[point].frame - wanted[point].frame) > 1) {
            return false;
        }
    }
    return true;
}

Seen seenAt(const QImage& image, QPoint point) {
    const QColor colour = image.pixelColor(point);
    const int red = frameIndex(colour.red());
    const int green = frameIndex(colour.green());
    const int blue = frameIndex(colour.blue());
    if (red >= 0 && blue >= 0 && green < 0) {
        return {'m', red};
    }
    if (red >= 0 && green < 0 && blue < 0) {
        return {'r', red};
    }
    if (green >= 0 && red < 0 && blue < 0) {
        return {'g', green};
    }
    if (blue >= 0 && red < 0 && green < 0) {
        return {'b', blue};
    }
    return {};
}

class EditorPreviewMpv : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        PreviewSurface::registerQmlType();
        folder = new TemporaryFolder;
        makeMovie(*folder / "Quadrants.mp4", quadrantFrames);
    }
    static void TearDownTestSuite() {
        delete folder;
        folder = nullptr;
    }

    void SetUp() override {
        auto made = PreviewPlayerMpv::create();
        ASSERT_TRUE(made.player) << made.error.toStdString();
        player = std::move(made.player);
        window.resize(320, 240);
        surface = new PreviewSurface(window.contentItem());
        surface->setSize(QSizeF(320, 240));
        surface->setPlayer(player.get());
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }

    // The source cut to [0, 1) and [2, 3) (the middle second deleted) at twice the
    // speed: one second of output, whose time t shows source frame 60t (t < 0.5) or
    // 60t + 30.
    static EditDecision cutAndFast() {
        EditDecision edit(3);
        EXPECT_TRUE(edit.split(1));
        EXPECT_TRUE(edit.split(2));
        EXPECT_TRUE(edit.deleteClip(edit.clips[1].id));
        edit.speed = 2;
        return edit;
    }

    // The four quadrants' centres, as the window shows them.
    std::array<Seen, 4> quadrants() {
        const QImage image = window.grabWindow();
        return {seenAt(image, {80, 60}), seenAt(image, {240, 60}), seenAt(image, {80, 180}),
                seenAt(image, {240, 180})};
    }

    // Waits until the window shows `expected`; every other picture shown meanwhile is
    // `before` (the last picture stays until the new one is ready, nothing in between).
    ::testing::AssertionResult waitFor(const std::array<Seen, 4>& expected,
                                       const std::array<Seen, 4>& before) {
        std::array<Seen, 4> shown;
        const bool reached = QTest::qWaitFor(
            [&] {
                shown = quadrants();
                return matches(shown, expected) || !matches(shown, before);
            },
            frameTimeoutMs);
        if (reached && matches(shown, expected)) {
            return ::testing::AssertionSuccess();
        }
        auto describe = [](const std::array<Seen, 4>& seen) {
            std::string text;
            for (const Seen& point : seen) {
                text += std::string(1, point.channel) + std::to_string(point.frame) + " ";
            }
            return text;
        };
        return ::testing::AssertionFailure()
               << "shown " << describe(shown) << "expected " << describe(expected);
    }

    static std::array<Seen, 4> wholeFrame(int frame) {
        return {Seen{'r', frame}, Seen{'g', frame}, Seen{'b', frame}, Seen{'m', frame}};
    }

    static TemporaryFolder* folder;
    std::unique_ptr<PreviewPlayerMpv> player;
    QQuickWindow window;
    PreviewSurface* surface = nullptr; // owned by the window's content item
};
TemporaryFolder* EditorPreviewMpv::folder = nullptr;

TEST_F(EditorPreviewMpv, ShowsTheEditsFrameAtEachSeekAndAfterEveryRebuild) {
    const auto cut = EditRenderer::build(*folder / "Quadrants.mp4", cutAndFast());
    player->setPreview(cut);
    player->seek(0.75); // after the cut: source 2.5 s
    ASSERT_TRUE(waitFor(wholeFrame(75), {}));
    player->seek(0.25); // before it: source 0.5 s
    ASSERT_TRUE(waitFor(wholeFrame(15), wholeFrame(75)));
    player->seek(0.5); // the first frame after the cut: source 2 s, never a keyframe before
    ASSERT_TRUE(waitFor(wholeFrame(60), wholeFrame(15)));

    // A rebuild with the top-right quadrant cropped: the window shows only that
    // quadrant, fitted, at the new preview's frame.
    EditDecision cropped = cutAndFast();
    cropped.crop = Rect{0.5, 0, 0.5, 0.5};
    player->setPreview(EditRenderer::build(*folder / "Quadrants.mp4", cropped));
    player->seek(0.25);
    const Seen top{'g', 15};
    ASSERT_TRUE(waitFor({top, top, top, top}, wholeFrame(60)));

    // And back at normal speed without the crop, still paused.
    EditDecision slow = cutAndFast();
    slow.speed = 1;
    player->setPreview(EditRenderer::build(*folder / "Quadrants.mp4", slow));
    player->seek(1.5);
    ASSERT_TRUE(waitFor(wholeFrame(75), {top, top, top, top}));
    EXPECT_EQ(player->rate(), 0);
    EXPECT_DOUBLE_EQ(player->currentTimeSeconds(), 1.5);
}

TEST_F(EditorPreviewMpv, PlaysForwardAndPausesByItselfAtTheEnd) {
    const auto cut = EditRenderer::build(*folder / "Quadrants.mp4", cutAndFast());
    player->setPreview(cut);
    player->seek(0.25);
    ASSERT_TRUE(waitFor(wholeFrame(15), {}));
    player->play();
    EXPECT_EQ(player->rate(), 1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return player->currentTimeSeconds() > 0.45; }, 5000))
        << "the position did not advance: " << player->currentTimeSeconds();
    EXPECT_EQ(player->rate(), 1);

    ASSERT_TRUE(QTest::qWaitFor([&] { return player->rate() == 0; }, 5000))
        << "still playing at " << player->currentTimeSeconds();
    EXPECT_DOUBLE_EQ(player->currentTimeSeconds(), cut.outputDurationSeconds);
    // The last frame of the edit stays: source frame 89.
    ASSERT_TRUE(waitFor(wholeFrame(89), {}));
    QTest::qWait(300);
    EXPECT_EQ(player->rate(), 0);
    EXPECT_DOUBLE_EQ(player->currentTimeSeconds(), cut.outputDurationSeconds);
}

} // namespace
} // namespace lumenvale::testing
