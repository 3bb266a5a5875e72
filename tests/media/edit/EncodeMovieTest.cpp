// The export that encodes an edit again: speed, crop, gains, the rebuilt mix and cuts,
// each checked by decoding the result with the ffmpeg command line (what a failed or
// cancelled export leaves behind: ExportOutcomeTest).

#include "EncodeChecks.h"
#include "LumenvaleMedia/EditRenderer.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>

namespace lumenvale {
namespace {

using namespace lumenvale::testing;

constexpr double sourceSeconds = 4;
constexpr double toneAmplitude = 0.25;

std::string tone(double frequency, int channels) {
    const std::string wave =
        std::to_string(toneAmplitude) + "*sin(2*PI*" + std::to_string(frequency) + "*t)";
    std::string expression = wave;
    for (int channel = 1; channel < channels; ++channel) {
        expression += "|" + wave;
    }
    return "-f lavfi -i \"aevalsrc=" + expression + ":s=48000\" ";
}

std::string named(int audioStream, const std::string& name) {
    const std::string index = std::to_string(audioStream);
    return "-metadata:s:a:" + index + " title=\"" + name + "\" -metadata:s:a:" + index +
           " handler_name=\"" + name + "\" ";
}

double decibels(double ratio) {
    return 20 * std::log10(ratio);
}

class EncodeMovieTest : public testing::SharedFolderTest<EncodeMovieTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        const std::string picture = "-f lavfi -i testsrc2=size=320x240:rate=30 ";
        const std::string coding = "-t " + std::to_string(sourceSeconds) +
                                   " -c:v libx264 -preset veryfast -crf 16 -pix_fmt yuv420p "
                                   "-c:a aac -b:a 192k ";
        // The layout of a Lumenvale recording with both sources: the mix first.
        makeMovie(*folder_ / "mixed.mp4",
                  picture + "-f lavfi -i \"aevalsrc=" + std::to_string(toneAmplitude) +
                      "*sin(2*PI*440*t)+" + std::to_string(toneAmplitude) +
                      "*sin(2*PI*1000*t):s=48000:c=stereo\" " + tone(440, 2) + tone(1000, 1) +
                      "-map 0:v -map 1:a -map 2:a -map 3:a " + coding +
                      named(0, "System audio and microphone") + named(1, "System audio") +
                      named(2, "Microphone") +
                      "-disposition:a:0 default -disposition:a:1 0 -disposition:a:2 0");
        makeMovie(*folder_ / "tone.mp4", picture + tone(440, 2) + "-map 0:v -map 1:a " + coding);
        makeNumberedMovie(*folder_ / "numbered.mp4", 6, 30, 160, 120);
    }

    static std::filesystem::path source(const std::string& name) { return *folder_ / name; }
};

TEST_F(EncodeMovieTest, SpeedScalesPictureAndSoundAndKeepsThePitch) {
    struct Case {
        double speed;
        Codec codec;
        const char* codecName;
        const char* codecTag;
    };
    for (const Case& c :
         {Case{2.0, Codec::h264, "h264", "avc1"}, Case{0.5, Codec::hevc, "hevc", "hvc1"},
          Case{3.0, Codec::h264, "h264", "avc1"}}) {
        SCOPED_TRACE("speed " + std::to_string(c.speed));
        EditDecision edit(sourceSeconds);
        edit.speed = c.speed;
        const auto destination = *folder_ / "speed.mp4";
        std::filesystem::remove(destination); // the case before wrote it; exports never replace
        EditRenderer::exportMovie(source("tone.mp4"), edit, c.codec, destination, {});

        const double expected = sourceSeconds / c.speed;
        const MovieInfo info = probe(destination);
        ASSERT_EQ(info.ofType("video").size(), 1u);
        ASSERT_EQ(info.ofType("audio").size(), 1u);
        const StreamInfo video = info.ofType("video").front();
        const StreamInfo audio = info.ofType("audio").front();
        EXPECT_EQ(video.codecName, c.codecName);
        EXPECT_EQ(video.codecTag, c.codecTag);
        EXPECT_NEAR(video.frameRate, 30, 0.01);
        EXPECT_NEAR(static_cast<double>(video.frames), expected * 30, 1.0);
        EXPECT_NEAR(audio.durationSeconds, expected, 0.05);
        EXPECT_EQ(audio.sampleRate, 48000);
        EXPECT_NEAR(info.durationSeconds, expected, 0.06);
        // The tone keeps its pitch and its level.
        const auto samples = audioSamples(destination, 0, expected * 0.25, expected * 0.5);
        EXPECT_NEAR(toneFrequency(samples, 48000), 440, 4);
        EXPECT_NEAR(decibels(audioRms(destination, 0, expected * 0.25, expected * 0.5) /
                             audioRms(source("tone.mp4"), 0, 1, 2)),
                    0, 0.5);
    }
}

TEST_F(EncodeMovieTest, CropKeepsTheChosenPixelsFromTheTopLeft) {
    struct Case {
        Rect crop;
        PictureArea pixels; // cropPixels of the crop for 320 x 240
    };
    for (const Case& c : {Case{{0.25, 0.1, 0.5, 0.5}, {80, 24, 160, 120}},
                          Case{{0, 0.5, 0.33, 0.5}, {0, 120, 104, 120}}}) {
        SCOPED_TRACE(std::to_string(c.pixels.x) + "," + std::to_string(c.pixels.y));
        EditDecision edit(sourceSeconds);
        edit.crop = c.crop;
        const auto destination = *folder_ / "crop.mp4";
        std::filesystem::remove(destination); // the case before wrote it; exports never replace
        EditRenderer::exportMovie(source("tone.mp4"), edit, Codec::h264, destination, {});

        const StreamInfo video = probe(destination).ofType("video").front();
        EXPECT_EQ(video.width, c.pixels.width);
        EXPECT_EQ(video.height, c.pixels.height);
        EXPECT_NEAR(probe(destination).durationSeconds, sourceSeconds, 0.06);
        const RgbPicture exported = pictureAt(destination, 1.5);
        const RgbPicture wanted = pictureAt(source("tone.mp4"), 1.5, c.pixels);
        PictureArea shifted = c.pixels;
        shifted.y = c.pixels.y == 0 ? 8 : c.pixels.y - 8;
        const RgbPicture elsewhere = pictureAt(source("tone.mp4"), 1.5, shifted);
        EXPECT_GT(psnr(exported, wanted), 35);
        EXPECT_GT(psnr(exported, wanted), psnr(exported, elsewhere) + 10);
    }
}

TEST_F(EncodeMovieTest, GainsScaleEachTrackAndTheMixIsRebuiltFromThem) {
    EditDecision edit(sourceSeconds);
    edit.volumes = {{1, 0.5}, {2, 2.0}};
    const auto destination = *folder_ / "gains.mp4";
    EditRenderer::exportMovie(source("mixed.mp4"), edit, Codec::h264, destination, {});

    const MovieInfo info = probe(destination);
    const auto audio = info.ofType("audio");
    ASSERT_EQ(audio.size(), 3u);
    EXPECT_EQ(info.streams.front().codecType, "video");
    EXPECT_EQ(audio[0].tags.at("handler_name"), "System audio and microphone");
    EXPECT_EQ(audio[1].tags.at("handler_name"), "System audio");
    EXPECT_EQ(audio[2].tags.at("handler_name"), "Microphone");
    EXPECT_TRUE(audio[0].isDefault);
    EXPECT_FALSE(audio[1].isDefault);
    EXPECT_EQ(audio[0].channels, 2);
    EXPECT_EQ(audio[1].channels, 2);
    EXPECT_EQ(audio[2].channels, 1);

    const auto level = [&](const std::filesystem::path& movie, int track) {
        return audioRms(movie, track, 0.5, 2.5);
    };
    // Two tones of equal level at different pitches add by power: the rebuilt mix is
    // sqrt(0.5² + 2²) times one tone where the recorded one was sqrt(2) times.
    struct Expectation {
        int track;
        double gainDecibels;
    };
    for (const Expectation& e :
         {Expectation{1, decibels(0.5)}, Expectation{2, decibels(2.0)},
          Expectation{0, decibels(std::sqrt(0.25 + 4.0) / std::sqrt(2.0))}}) {
        SCOPED_TRACE("audio track " + std::to_string(e.track));
        EXPECT_NEAR(decibels(level(destination, e.track) / level(source("mixed.mp4"), e.track)),
                    e.gainDecibels, 0.5);
    }
    for (int track = 0; track < 3; ++track) {
        EXPECT_NEAR(audio[static_cast<std::size_t>(track)].durationSeconds, sourceSeconds, 0.05);
    }
}

TEST_F(EncodeMovieTest, CutsAndSpeedShowTheFramesOfTheirOutputTimes) {
    EditDecision edit(6);
    edit.clips = {Clip::make(1, 2), Clip::make(4, 5.5)};
    edit.speed = 2;
    const auto destination = *folder_ / "cuts.mp4";
    EditRenderer::exportMovie(source("numbered.mp4"), edit, Codec::h264, destination, {});

    // Output frame k (output time k / 30) shows source time 1 + 2k / 30 in the first
    // clip and 4 + (2k / 30 - 1) in the second: source frames 30 + 2k, then 90 + 2k.
    const auto pictures = decodePictures(destination);
    ASSERT_EQ(pictures.size(), 38u);
    for (std::size_t k = 0; k < pictures.size(); ++k) {
        const int expected = static_cast<int>(k < 15 ? 30 + 2 * k : 90 + 2 * k);
        EXPECT_EQ(frameNumberOf(meanColour(pictures[k].rgb)), expected) << "output frame " << k;
    }
}

} // namespace
} // namespace lumenvale
