// The GIF export: how many frames at which times, their delays and looping, the
// size after crop and scale, and how faithful the colours are (failures:
// ExportOutcomeTest). Results are read by an independent decoder (ffmpeg) and by
// walking the GIF's blocks.

#include "EncodeChecks.h"
#include "LumenvaleMedia/EditRenderer.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>

namespace lumenvale {
namespace {

using namespace lumenvale::testing;

class GifExportTest : public testing::SharedFolderTest<GifExportTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeNumberedMovie(*folder_ / "numbered.mp4", 35, 30, 160, 120);
        makeMovie(*folder_ / "wide.mp4", "-f lavfi -i testsrc2=size=1280x720:rate=30 -t 2 "
                                         "-c:v libx264 -preset veryfast -crf 16 -pix_fmt yuv420p");
        // A second of test pattern, then a second of a fractal with colours of its own.
        makeMovie(*folder_ / "scenes.mp4",
                  "-f lavfi -i testsrc2=size=480x270:rate=30:duration=1 -f lavfi -i "
                  "mandelbrot=size=480x270:rate=30 -filter_complex "
                  "\"[1]trim=duration=1[m];[0][m]concat=n=2:v=1\" -c:v libx264 -preset veryfast "
                  "-crf 14 -pix_fmt yuv420p");
    }
};

// The source frame (at 30 frames a second) that output time t of the edit shows.
int sourceFrameAt(const EditDecision& edit, double outputSeconds) {
    return static_cast<int>(std::lround(edit.locate(outputSeconds).source * 30));
}

TEST_F(GifExportTest, FramesAreTenASecondOfTheFirstThirtySecondsAndLoopForever) {
    struct Case {
        const char* name;
        std::vector<std::pair<double, double>> clips;
        double speed;
        std::size_t frames;
    };
    for (const Case& c : {Case{"longer than 30 s", {{0, 35}}, 1, 300}, Case{"2 s", {{3, 5}}, 1, 20},
                          Case{"0.05 s", {{1, 1.05}}, 1, 1},
                          Case{"cut and twice as fast", {{2, 4}, {10, 12}}, 2, 20},
                          Case{"late clip first", {{20, 21}, {1, 2}}, 1, 20}}) {
        SCOPED_TRACE(c.name);
        const EditDecision edit = editKeeping(35, c.clips, c.speed);
        const auto gif = *folder_ / "plan.gif";
        std::filesystem::remove(gif); // the case before wrote it; exports never replace
        std::vector<double> reports;
        EditRenderer::exportGIF(*folder_ / "numbered.mp4", edit, gif,
                                [&](double fraction) { reports.push_back(fraction); });

        const GifStructure structure = readGifStructure(gif);
        ASSERT_EQ(structure.frames.size(), c.frames);
        ASSERT_TRUE(structure.loopCount.has_value());
        EXPECT_EQ(*structure.loopCount, 0);
        EXPECT_EQ(structure.width, 160); // never enlarged
        EXPECT_EQ(structure.height, 120);
        for (const auto& frame : structure.frames) {
            EXPECT_EQ(frame.delayCentiseconds, 10);
        }
        const auto pictures = decodePictures(gif);
        ASSERT_EQ(pictures.size(), c.frames);
        for (std::size_t k = 0; k < pictures.size(); ++k) {
            EXPECT_EQ(frameNumberOf(meanColour(pictures[k].rgb)),
                      sourceFrameAt(edit, static_cast<double>(k) / 10))
                << "GIF frame " << k;
        }
        EXPECT_EQ(reports.size(), c.frames) << "a progress report a frame";
    }
}

TEST_F(GifExportTest, CropThenFitIntoSixHundredFortyPixels) {
    EditDecision edit(2);
    edit.crop = Rect{0.25, 0, 0.5, 1}; // 640 x 720 pixels from x 320
    const auto gif = *folder_ / "crop.gif";
    EditRenderer::exportGIF(*folder_ / "wide.mp4", edit, gif, {});

    const GifStructure structure = readGifStructure(gif);
    EXPECT_EQ(structure.width, 569); // 640 x 640 / 720, rounded
    EXPECT_EQ(structure.height, 640);
    EXPECT_EQ(structure.frames.size(), 20u);

    const auto scaled = [&](int x) {
        return decodeRgb("-i " + quoted(*folder_ / "wide.mp4") + " -frames:v 1 -vf crop=640:720:" +
                             std::to_string(x) + ":0,scale=569:640:flags=lanczos",
                         569, 640)
            .at(0);
    };
    const RgbPicture first = decodePictures(gif).at(0);
    EXPECT_GT(psnr(first, scaled(320)), 28);
    EXPECT_GT(psnr(first, scaled(320)), psnr(first, scaled(352)) + 6);
}

TEST_F(GifExportTest, EveryFrameKeepsItsColoursAndNewColoursGetAPaletteOfTheirOwn) {
    EditDecision edit(2);
    const auto gif = *folder_ / "scenes.gif";
    EditRenderer::exportGIF(*folder_ / "scenes.mp4", edit, gif, {});

    const GifStructure structure = readGifStructure(gif);
    ASSERT_EQ(structure.frames.size(), 20u);
    EXPECT_TRUE(structure.hasGlobalPalette);
    // The fractal's gradients are far from the test pattern's colours.
    EXPECT_TRUE(structure.frames[10].hasOwnPalette);
    const auto pictures = decodePictures(gif);
    ASSERT_EQ(pictures.size(), 20u);
    for (std::size_t k = 0; k < pictures.size(); ++k) {
        const auto source =
            decodeRgb("-i " + quoted(*folder_ / "scenes.mp4") + " -vf \"select=eq(n\\," +
                          std::to_string(3 * k) + ")\" -frames:v 1",
                      480, 270);
        EXPECT_GT(psnr(pictures[k], source.at(0)), 30) << "GIF frame " << k;
    }
}

} // namespace
} // namespace lumenvale
