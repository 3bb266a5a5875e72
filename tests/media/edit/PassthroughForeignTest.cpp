// Cut-only exports of movies Lumenvale did not record.

#include "LumenvaleMedia/EditRenderer.h"
#include "PassthroughMovies.h"
#include "Probe.h"

#include <cmath>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::makeMovie;
using testing::psnr;
using testing::TemporaryFolder;

const std::string source4s = "-f lavfi -i testsrc2=size=320x240:rate=30:duration=4 "
                             "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=4 ";

std::set<std::string> audioPacketSums(const std::filesystem::path& movie) {
    const std::string text = testing::run("ffmpeg -v error -i " + testing::quoted(movie) +
                                          " -map 0:a:0 -c copy -f framemd5 -");
    std::set<std::string> sums;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty() && line[0] != '#') {
            sums.insert(line.substr(line.rfind(',') + 1));
        }
    }
    return sums;
}

std::vector<double> timesOf(const std::vector<PacketSum>& packets) {
    std::vector<double> times;
    for (const auto& packet : packets) {
        times.push_back(packet.timeSeconds);
    }
    return times;
}

TEST(PassthroughForeignTest, EncodesThePictureAgainWhenFramesCannotBeMatched) {
    TemporaryFolder folder;
    const auto source = folder / "camera.mp4";
    // x264's defaults: B-frames, and parameter sets unlike Lumenvale's.
    makeMovie(source, source4s + "-c:v libx264 -g 60 -pix_fmt yuv420p -c:a aac");
    const auto output = folder / "edited.mp4";
    const EditDecision edit = editKeeping(4, {{0.5, 1.7}, {2.1, 3.4}});
    std::vector<std::string> statuses;
    EditRenderer::exportMovie(
        source, edit, Codec::h264, output, [](double) {}, nullptr,
        [&](const std::string& status) { statuses.push_back(status); });
    ASSERT_EQ(statuses.size(), 1U);
    EXPECT_EQ(statuses[0],
              "This movie wasn’t recorded by Lumenvale, so its picture is encoded again.");

    const auto expected = expectedFrames(edit, timesOf(videoPackets(source)));
    const auto sourceFrames = lumaFrames(source);
    const auto outputFrames = lumaFrames(output);
    const auto outputPackets = videoPackets(output);
    ASSERT_EQ(outputFrames.size(), expected.size());
    ASSERT_EQ(outputPackets.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::size_t j = expected[i].sourceIndex;
        EXPECT_NEAR(outputPackets[i].timeSeconds, expected[i].outputSeconds, 1e-5) << i;
        const double chosen = psnr(outputFrames[i], sourceFrames[j]);
        EXPECT_GT(chosen, 30) << "frame " << i;
        for (std::size_t k : {j - 1, j + 1}) {
            if (k < sourceFrames.size()) {
                EXPECT_GT(chosen, psnr(outputFrames[i], sourceFrames[k])) << "frame " << i;
            }
        }
    }
    // The sound is still copied, not encoded.
    const auto sourceSums = audioPacketSums(source);
    for (const auto& sum : audioPacketSums(output)) {
        EXPECT_EQ(sourceSums.count(sum), 1U) << sum;
    }
    EXPECT_NEAR(testing::probe(output).durationSeconds, edit.outputDuration(), 0.011);
}

TEST(PassthroughForeignTest, CopiesEverythingWhenEveryCutStartsOnAKeyframe) {
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
        const auto sourceSums = audioPacketSums(source);
        for (const auto& sum : audioPacketSums(output)) {
            EXPECT_EQ(sourceSums.count(sum), 1U) << container << " " << sum;
        }
    }
}

} // namespace
} // namespace lumenvale
