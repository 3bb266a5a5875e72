// Filmstrip thumbnails: how many, at which times, in which order, how big, what
// they show, and that a movie that can't be read gives none instead of an error.

#include "EncodeChecks.h"
#include "LumenvaleMedia/EditRenderer.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

namespace lumenvale {
namespace {

using namespace lumenvale::testing;

constexpr double movieSeconds = 10;
// Keyframes every second, exactly: the frames a keyframe-only decoder may show.
const std::string everySecond = "-g 30 -keyint_min 30 -sc_threshold 0 -bf 0";

class ThumbnailsTest : public testing::SharedFolderTest<ThumbnailsTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeNumberedMovie(*folder_ / "wide.mp4", movieSeconds, 30, 320, 180, everySecond);
        makeNumberedMovie(*folder_ / "tall.mp4", movieSeconds, 30, 120, 360, everySecond);
        makeNumberedMovie(*folder_ / "small.mp4", movieSeconds, 30, 160, 120, everySecond);
    }
};

TEST_F(ThumbnailsTest, CentresOfEqualSlicesInOrderFittingTheBox) {
    struct Case {
        const char* movie;
        int count;
        PixelSize size;
    };
    for (const Case& c : {Case{"wide.mp4", 8, {240, 135}}, Case{"tall.mp4", 5, {80, 240}},
                          Case{"small.mp4", 40, {160, 120}}}) {
        SCOPED_TRACE(c.movie);
        const auto thumbnails = EditRenderer::thumbnails(*folder_ / c.movie, c.count);
        ASSERT_EQ(thumbnails.size(), static_cast<std::size_t>(c.count));
        for (int i = 0; i < c.count; ++i) {
            const auto& thumbnail = thumbnails[static_cast<std::size_t>(i)];
            const double centre = movieSeconds * (i + 0.5) / c.count;
            EXPECT_NEAR(thumbnail.timeSeconds, centre, 1.0 / 1200);
            EXPECT_EQ(thumbnail.image.size, c.size);
            ASSERT_EQ(thumbnail.image.rgba.size(),
                      static_cast<std::size_t>(c.size.width * c.size.height * 4));
            // A frame from at most a keyframe interval before the time, never after it.
            const int shown = frameNumberOf(meanColour(thumbnail.image.rgba, 4));
            EXPECT_LE(shown, std::lround(thumbnail.timeSeconds * 30)) << "thumbnail " << i;
            EXPECT_GE(shown, std::lround(thumbnail.timeSeconds * 30) - 30) << "thumbnail " << i;
            if (i > 0) {
                EXPECT_GT(thumbnail.timeSeconds,
                          thumbnails[static_cast<std::size_t>(i) - 1].timeSeconds);
            }
        }
    }
}

TEST_F(ThumbnailsTest, NothingToShowGivesNoneAndNeverThrows) {
    EXPECT_TRUE(EditRenderer::thumbnails(*folder_ / "wide.mp4", 0).empty());
    EXPECT_TRUE(EditRenderer::thumbnails(*folder_ / "wide.mp4", -3).empty());
    EXPECT_TRUE(EditRenderer::thumbnails(*folder_ / "absent.mp4", 8).empty());
    const auto text = *folder_ / "text.mp4";
    std::ofstream(text) << "not a movie";
    EXPECT_TRUE(EditRenderer::thumbnails(text, 8).empty());
    makeMovie(*folder_ / "sound.m4a", "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 2");
    EXPECT_TRUE(EditRenderer::thumbnails(*folder_ / "sound.m4a", 8).empty());
}

} // namespace
} // namespace lumenvale
