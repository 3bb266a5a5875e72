// Cut-only exports of movies Lumenvale did not record.

#include "LumenvaleMedia/EditRenderer.h"
#include "PassthroughMovies.h"
#include "Probe.h"
#include "edit/EncoderSettings.h"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::makeMovie;
using testing::TemporaryFolder;

const std::string source4s = "-f lavfi -i testsrc2=size=320x240:rate=30:duration=4 "
                             "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=4 ";

// The colour descriptions the frames of a movie's picture carry (range, matrix,
// primaries, transfer), as ffprobe reads them frame by frame.
std::set<std::string> frameColours(const std::filesystem::path& movie) {
    const auto json = nlohmann::json::parse(
        testing::run("ffprobe -v error -select_streams v:0 -show_entries "
                     "frame=color_range,color_space,color_primaries,color_transfer -of json " +
                     testing::quoted(movie)));
    std::set<std::string> colours;
    for (const auto& frame : json.at("frames")) {
        std::string description;
        for (const char* key :
             {"color_range", "color_space", "color_primaries", "color_transfer"}) {
            description += frame.value(key, std::string("-")) + " ";
        }
        colours.insert(description);
    }
    return colours;
}

// Movies made elsewhere, 6 s with a keyframe every second, cut between keyframes.
struct Foreign {
    std::string name;
    std::string encoding; // ffmpeg's video options
    std::string codecTag; // the output's: avc3 / hev1 when frames carry parameter sets
    std::string container = "mp4";
    // The second clip continues the first only where frames fall on the edit's grid
    // (a split elsewhere shows the frame at the split once, not twice).
    std::vector<std::pair<double, double>> cuts = {{0.8, 2}, {2, 3.9}, {4.9, 6}};
};

const std::string source6s = "-f lavfi -i testsrc2=size=320x240:rate=30:duration=6 "
                             "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=6 ";

void PrintTo(const Foreign& made, std::ostream* out) {
    *out << made.name;
}

class PassthroughForeignTest : public ::testing::TestWithParam<Foreign> {};

TEST_P(PassthroughForeignTest, CopiesAllButTheFramesAroundTheCuts) {
    const Foreign& made = GetParam();
    TemporaryFolder folder;
    const auto source = folder / ("camera." + made.container);
    makeMovie(source, source6s + made.encoding +
                          " -g 30 -keyint_min 30 -sc_threshold 0 "
                          "-pix_fmt yuv420p -c:a aac");
    const auto output = folder / "edited.mp4";
    const EditDecision edit = editKeeping(6, made.cuts);
    std::vector<std::string> statuses;
    EditRenderer::exportMovie(
        source, edit, Codec::h264, output, [](double) {}, nullptr,
        [&](const std::string& status) { statuses.push_back(status); });
    EXPECT_TRUE(statuses.empty()) << statuses.front();

    const auto sourcePackets = videoPackets(source);
    const auto expected = expectedFrames(edit, timesOf(sourcePackets));
    const auto sourceFrames = lumaFrames(source);
    const auto outputFrames = lumaFrames(output);
    const auto outputPackets = videoPackets(output);
    ASSERT_EQ(outputFrames.size(), expected.size());
    ASSERT_EQ(outputPackets.size(), expected.size());
    std::size_t copies = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::size_t j = expected[i].sourceIndex;
        EXPECT_NEAR(outputPackets[i].timeSeconds, expected[i].outputSeconds, 1e-5) << i;
        if (outputPackets[i].md5 == sourcePackets[j].md5) {
            ++copies;
            EXPECT_TRUE(outputFrames[i] == sourceFrames[j]) << "copied frame " << i;
            continue;
        }
        expectEncodedFrameIs(outputFrames[i], sourceFrames, j, "frame " + std::to_string(i));
    }
    EXPECT_GE(copies * 4, expected.size() * 3) << copies << " of " << expected.size();

    // One sample description: the source's parameter sets, or (frames with their own)
    // an entry that lets samples carry them.
    const auto info = testing::probe(output);
    ASSERT_EQ(info.ofType("video").size(), 1U);
    EXPECT_EQ(info.ofType("video")[0].codecTag, made.codecTag);
    EXPECT_EQ(extradataOf(output, 0), extradataOf(source, 0));
    EXPECT_NEAR(info.ofType("video")[0].durationSeconds, edit.outputDuration(), 1.01 / 30);
    // Frames encoded again describe their colours as the source does (players that
    // honour the description would show them in other colours).
    EXPECT_EQ(frameColours(output), frameColours(source));
    EXPECT_NO_THROW(
        testing::run("ffmpeg -v error -xerror -i " + testing::quoted(output) + " -f null -"));
    expectSoundCopied(source, output);
}

// x264 and x265 write their settings into the stream, from which the frames at the
// cuts are encoded alike; without that message (x264's removed, x265 told to write
// none), as from an encoder that writes none, the frames encoded again bring their
// own parameter sets.
INSTANTIATE_TEST_SUITE_P(
    Movies, PassthroughForeignTest,
    ::testing::Values(
        Foreign{"x264BFrames", "-c:v libx264", "avc1"},
        Foreign{"x264BFramesMov2997",
                "-c:v libx264 -r 30000/1001",
                "avc1",
                "mov",
                {{0.8, 3.9}, {4.9, 6}}},
        Foreign{"x264BFramesMatroska", "-c:v libx264", "avc1", "mkv", {{0.8, 3.9}, {4.9, 6}}},
        Foreign{"x264NoBFrames", "-c:v libx264 -preset faster -bf 0 -crf 26", "avc1"},
        Foreign{"x265", "-c:v libx265 -x265-params log-level=error -tag:v hvc1", "hvc1"},
        Foreign{"hevcWithoutSettings",
                "-c:v libx265 -x265-params log-level=error:info=0 -tag:v hvc1", "hev1"},
        Foreign{"h264WithoutSettings", "-c:v libx264 -bf 2 -bsf:v filter_units=remove_types=6",
                "avc3"}),
    [](const auto& parameter) { return parameter.param.name; });

// The settings text as it sits in an SEI message: after the message's header and
// identifier, ended by the trailing bits.
std::vector<std::uint8_t> seiWith(const std::string& text) {
    const std::string unit = std::string("\0\0\0\x40\x06\x05\xFF\x3C\xDC\x45", 10) + text + "\x80";
    return {unit.begin(), unit.end()};
}

TEST(EncoderSettingsTest, GivesBackWhatShapesTheParameterSetsAndRefusesWhatCannotBeMatched) {
    const std::string x264 = "x264 - core 164 r3095 baee400 - H.264/MPEG-4 AVC codec - "
                             "Copyleft 2003-2022 - http://www.videolan.org/x264.html - options: ";
    const auto settings = edit::findEncoderSettings(
        seiWith(x264 + "cabac=1 ref=3 deblock=1:-1:-2 8x8dct=1 cqm=0 chroma_qp_offset=-2 "
                       "interlaced=0 bframes=3 b_pyramid=2 weightp=2 keyint=250 rc=crf "
                       "crf=23.0 aq=1:1.00"));
    ASSERT_TRUE(settings.has_value());
    EXPECT_EQ(settings->encoder, edit::SourceEncoder::x264);
    EXPECT_EQ(edit::encoderParameters(*settings),
              "psy=0:cabac=1:ref=3:8x8dct=1:chroma-qp-offset=-2:bframes=3:weightp=2:keyint=250:"
              "b-pyramid=normal:deblock=-1,-2:crf=23.0");
    const auto constant = edit::findEncoderSettings(seiWith(x264 + "deblock=0:0:0 rc=cqp qp=18"));
    ASSERT_TRUE(constant.has_value());
    EXPECT_EQ(edit::encoderParameters(*constant), "psy=0:no-deblock=1:qp=18");
    for (const std::string refused :
         {"interlaced=1 rc=crf crf=20", "cqm=2 rc=crf crf=20", "rc=2pass"}) {
        const auto found = edit::findEncoderSettings(seiWith(x264 + refused));
        ASSERT_TRUE(found.has_value()) << refused;
        EXPECT_FALSE(edit::encoderParameters(*found).has_value()) << refused;
    }

    const auto x265 = edit::findEncoderSettings(
        seiWith("x265 (build 199) - 3.5+1-f0c1022b6:[Linux][GCC 12.2.0][64 bit] 8bit+10bit+12bit - "
                "H.265/HEVC codec - options: cpuid=1111039 wpp no-pmode bitdepth=8 input-csp=1 "
                "fps=30/1 input-res=320x240 interlace=0 ref=3 deblock=0:0 videoformat=5 range=0 "
                "chromaloc=1 chromaloc-top=2 chromaloc-bottom=2 rc=crf crf=28.0"));
    ASSERT_TRUE(x265.has_value());
    EXPECT_EQ(x265->encoder, edit::SourceEncoder::x265);
    EXPECT_EQ(edit::encoderParameters(*x265),
              "log-level=error:wpp=1:ref=3:deblock=0,0:crf=28.0:chromaloc=2");
    const auto tenBits = edit::findEncoderSettings(
        seiWith("x265 (build 199) - 3.5 - options: bitdepth=10 input-csp=1 rc=crf crf=28.0"));
    ASSERT_TRUE(tenBits.has_value());
    EXPECT_FALSE(edit::encoderParameters(*tenBits).has_value());

    EXPECT_FALSE(edit::findEncoderSettings(seiWith("Lavc59.37.100 libx264")).has_value());
}

TEST(PassthroughWholeEncodeTest, EncodesThePictureAgainWhenNotH264OrHevc) {
    TemporaryFolder folder;
    const auto source = folder / "camera.mp4";
    makeMovie(source, source4s + "-c:v mpeg4 -q:v 3 -g 60 -c:a aac");
    const auto output = folder / "edited.mp4";
    const EditDecision edit = editKeeping(4, {{0.5, 1.7}, {2.1, 3.4}});
    std::vector<std::string> statuses;
    EditRenderer::exportMovie(
        source, edit, Codec::h264, output, [](double) {}, nullptr,
        [&](const std::string& status) { statuses.push_back(status); });
    ASSERT_EQ(statuses.size(), 1U);
    EXPECT_EQ(statuses[0],
              "This movie’s video is neither H.264 nor HEVC, so its picture is encoded again.");

    const auto expected = expectedFrames(edit, timesOf(videoPackets(source)));
    const auto sourceFrames = lumaFrames(source);
    const auto outputFrames = lumaFrames(output);
    const auto outputPackets = videoPackets(output);
    ASSERT_EQ(outputFrames.size(), expected.size());
    ASSERT_EQ(outputPackets.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(outputPackets[i].timeSeconds, expected[i].outputSeconds, 1e-5) << i;
        expectEncodedFrameIs(outputFrames[i], sourceFrames, expected[i].sourceIndex,
                             "frame " + std::to_string(i));
    }
    EXPECT_EQ(testing::probe(output).ofType("video")[0].codecName, "h264");
    expectSoundCopied(source, output); // still copied, not encoded
    EXPECT_NEAR(testing::probe(output).durationSeconds, edit.outputDuration(), 0.011);
}

TEST(PassthroughKeyframeCutsTest, CopiesEverythingWhenEveryCutStartsOnAKeyframe) {
    // Keyframes every second, no B-frames, yet not Lumenvale's encoder settings; in
    // MPEG-4 (read through its index) and Matroska (read through the demuxer).
    for (const std::string container : {"mp4", "mkv"}) {
        TemporaryFolder folder;
        const auto source = folder / ("screencast." + container);
        makeMovie(source, source4s + "-c:v libx264 -preset ultrafast -bf 0 -g 30 "
                                     "-pix_fmt yuv420p -c:a aac");
        const auto output = folder / "edited.mp4";
        // Each clip starts on a keyframe (Matroska shifts them by the sound's priming),
        // at the first 1/600 s within that frame.
        std::vector<double> keyframes;
        for (const auto& packet : videoPackets(source)) {
            if (packet.keyframe) {
                keyframes.push_back(std::ceil(packet.timeSeconds * 600) / 600);
            }
        }
        ASSERT_GE(keyframes.size(), 3U) << container;
        const EditDecision edit = editKeeping(4, {{keyframes[0], keyframes[0] + 0.8},
                                                  {keyframes[2], keyframes[2] + 1.3},
                                                  {keyframes[1], keyframes[1] + 0.5}});
        int statuses = 0;
        EditRenderer::exportMovie(
            source, edit, Codec::h264, output, [](double) {}, nullptr,
            [&](const std::string&) { ++statuses; });
        EXPECT_EQ(statuses, 0) << container;

        const auto sourcePackets = videoPackets(source);
        const auto outputPackets = videoPackets(output);
        const auto expected = expectedFrames(edit, timesOf(sourcePackets));
        ASSERT_EQ(outputPackets.size(), expected.size()) << container;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(outputPackets[i].md5, sourcePackets[expected[i].sourceIndex].md5)
                << container << " frame " << i;
            EXPECT_NEAR(outputPackets[i].timeSeconds, expected[i].outputSeconds, 1e-5)
                << container << " frame " << i;
        }
        expectSoundCopied(source, output);
    }
}

} // namespace
} // namespace lumenvale
