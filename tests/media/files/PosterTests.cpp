// Posters: the frame at RecordingName::posterTime, scaled down to 640 pixels at most.

#include "LumenvaleMedia/RecordingFiles.h"
#include "Probe.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

struct PosterCase {
    const char* name;
    int width;
    int height;
    double seconds;
    PixelSize expectedSize;
    int expectedFrame; // the frame shown at the poster time (10 frames a second)
};

class PosterTest : public ::testing::TestWithParam<PosterCase> {};

// A movie whose frame N has red = 40 N, so the poster tells which frame it shows.
TEST_P(PosterTest, ShowsTheFrameAtThePosterTimeNoLargerThan640) {
    const PosterCase& c = GetParam();
    testing::TemporaryFolder folder;
    const auto movie = folder / "movie.mp4";
    testing::makeMovie(movie,
                       "-f lavfi -i \"color=c=black:s=" + std::to_string(c.width) + "x" +
                           std::to_string(c.height) + ":r=10:d=" + std::to_string(c.seconds) +
                           ",format=rgb24,geq=r='min(255,N*40)':g=128:b=64\" -pix_fmt yuv420p"
                           " -c:v libx264 -preset ultrafast");

    const std::optional<Image> poster = RecordingFiles::poster(movie, c.seconds);

    ASSERT_TRUE(poster.has_value());
    EXPECT_EQ(poster->size, c.expectedSize);
    ASSERT_EQ(poster->rgba.size(),
              static_cast<std::size_t>(c.expectedSize.width * c.expectedSize.height * 4));
    const auto centre = static_cast<std::size_t>(
        ((c.expectedSize.height / 2) * c.expectedSize.width + c.expectedSize.width / 2) * 4);
    EXPECT_NEAR(poster->rgba[centre], 40 * c.expectedFrame, 6) << "red of the poster's centre";
    EXPECT_NEAR(poster->rgba[centre + 1], 128, 6);
    EXPECT_EQ(poster->rgba[centre + 3], 255);
}

INSTANTIATE_TEST_SUITE_P(
    Movies, PosterTest,
    ::testing::Values(PosterCase{"portrait", 720, 1280, 1, {360, 640}, 5},
                      PosterCase{"square", 1000, 1000, 1, {640, 640}, 5},
                      PosterCase{"small", 320, 240, 2, {320, 240}, 5},
                      PosterCase{"shorter than a second", 640, 360, 0.6, {640, 360}, 3}),
    [](const ::testing::TestParamInfo<PosterCase>& param) {
        std::string name = param.param.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

TEST(Poster, IsAbsentWithoutAPicture) {
    testing::TemporaryFolder folder;
    const auto sound = folder / "sound.mp4";
    testing::makeMovie(sound, "-f lavfi -i sine=frequency=440:duration=1 -c:a aac");
    EXPECT_FALSE(RecordingFiles::poster(sound, 1).has_value());
    EXPECT_FALSE(RecordingFiles::poster(folder / "missing.mp4", 1).has_value());
}

} // namespace
} // namespace lumenvale
