// The picture of a cut-only export: exactly the chosen frames, copied byte for byte
// except from each cut to the next keyframe, under the source's one sample description,
// indexed at the front of the file.

#include "LumenvaleMedia/EditRenderer.h"
#include "PassthroughMovies.h"
#include "Probe.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::TemporaryFolder;

// Keyframes of the test movies fall every 2 s (0, 2, 4). The second clip continues the
// first (a split without a delete: no cut there); the others start between keyframes.
const std::vector<std::pair<double, double>> cutRanges = {
    {0, 0.5}, {0.5, 1}, {1.5, 2.7}, {3.1, 5.2}, {5.5, 6}};

struct Source {
    Codec codec;
    int dropEvery;          // frames the capture lost: every n-th, 0 for none
    std::size_t headFrames; // frames from the cuts to the next keyframes
};

class PassthroughFramesTest
    : public testing::SharedFolderTest<PassthroughFramesTest, ::testing::TestWithParam<Source>> {
  protected:
    static std::filesystem::path source(const Source& made) {
        const auto path = *folder_ / ("recording-" + std::string(rawValue(made.codec)) + "-" +
                                      std::to_string(made.dropEvery) + ".mp4");
        if (!std::filesystem::exists(path)) {
            makeRecordingLikeMovie(path, made.codec, 6, {{"sine=frequency=440", ""}},
                                   made.dropEvery);
        }
        return path;
    }
};

// The output frames that cannot be copies: from each cut whose first frame is not a
// keyframe up to the next keyframe of the source.
std::set<std::size_t> framesAfterCutsBeforeKeyframes(const std::vector<ExpectedFrame>& frames,
                                                     const std::vector<PacketSum>& source) {
    std::set<std::size_t> encoded;
    bool inHead = false;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const std::size_t j = frames[i].sourceIndex;
        const bool cut = i == 0 || j != frames[i - 1].sourceIndex + 1;
        if (source[j].keyframe) {
            inHead = false;
        } else if (cut) {
            inHead = true;
        }
        if (inHead) {
            encoded.insert(i);
        }
    }
    return encoded;
}

TEST_P(PassthroughFramesTest, ShowsTheChosenFramesAndCopiesAllButTheCutHeads) {
    const Codec codec = GetParam().codec;
    const auto movie = source(GetParam());
    TemporaryFolder folder;
    const auto output = folder / "edited.mp4";
    const EditDecision edit = editKeeping(6, cutRanges);
    int statusReports = 0;
    EditRenderer::exportMovie(
        movie, edit, codec, output, [](double) {}, nullptr,
        [&](const std::string&) { ++statusReports; });
    EXPECT_EQ(statusReports, 0) << "a Lumenvale recording is never encoded in full";

    const auto sourcePackets = videoPackets(movie);
    const auto outputPackets = videoPackets(output);
    const auto expected = expectedFrames(edit, timesOf(sourcePackets));
    const auto encoded = framesAfterCutsBeforeKeyframes(expected, sourcePackets);
    ASSERT_EQ(outputPackets.size(), expected.size());
    ASSERT_EQ(encoded.size(), GetParam().headFrames);

    const auto sourceFrames = lumaFrames(movie);
    const auto outputFrames = lumaFrames(output);
    ASSERT_EQ(outputFrames.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::size_t j = expected[i].sourceIndex;
        EXPECT_NEAR(outputPackets[i].timeSeconds, expected[i].outputSeconds, 1e-5) << "frame " << i;
        if (encoded.count(i) == 0) {
            // x265 begins with an IDR picture, its later keyframes are clean random
            // access ones: copied after a cut or encoded frames, those are marked as
            // broken links (their units' type byte), so pictures are numbered afresh.
            const bool marked =
                codec == Codec::hevc && sourcePackets[j].keyframe && j != 0 &&
                (i == 0 || expected[i - 1].sourceIndex + 1 != j || encoded.count(i - 1) != 0);
            EXPECT_EQ(outputPackets[i].md5 == sourcePackets[j].md5, !marked)
                << "copied frame " << i;
            EXPECT_TRUE(outputFrames[i] == sourceFrames[j]) << "copied frame " << i;
            continue;
        }
        EXPECT_NE(outputPackets[i].md5, sourcePackets[j].md5) << "encoded frame " << i;
        EXPECT_EQ(outputPackets[i].keyframe, encoded.count(i - 1) == 0) << "frame " << i;
        expectEncodedFrameIs(outputFrames[i], sourceFrames, j, "frame " + std::to_string(i));
    }

    // One sample description with the source's own parameter sets, a plain timeline.
    EXPECT_EQ(extradataOf(output, 0), extradataOf(movie, 0));
    EXPECT_EQ(traceCount(output, codec == Codec::h264 ? "type:'avcC'" : "type:'hvcC'"), 1);
    EXPECT_EQ(traceCount(output, "edit_count = 1"), 2);
    EXPECT_EQ(traceCount(output, "edit_count ="), 2);
    // Fast start: the index before the samples, so a movie plays while it downloads.
    std::map<std::string, std::uint64_t> boxAt;
    for (const testing::Box& box : testing::mp4Boxes(output)) {
        boxAt.emplace(box.type, box.offset);
    }
    ASSERT_TRUE(boxAt.count("moov") == 1 && boxAt.count("mdat") == 1);
    EXPECT_LT(boxAt["moov"], boxAt["mdat"]);
    const auto info = testing::probe(output);
    ASSERT_EQ(info.ofType("video").size(), 1U);
    EXPECT_NEAR(info.ofType("video")[0].durationSeconds, edit.outputDuration(), 1e-3);
    EXPECT_EQ(info.ofType("video")[0].codecTag, fourCC(codec));
    EXPECT_NO_THROW(
        testing::run("ffmpeg -v error -xerror -i " + testing::quoted(output) + " -f null -"));
}

// Heads at 1.5 s, 3.1 s and 5.5 s of 15, 27 and 15 frames. A capture that lost every
// 5th frame (24 frames a second on average, still recorded at 30) keeps a keyframe
// every 60 frames, at 2.5 s and 5.0 s: heads of 24, 46 and 12 frames.
INSTANTIATE_TEST_SUITE_P(Recordings, PassthroughFramesTest,
                         ::testing::Values(Source{Codec::h264, 0, 57}, Source{Codec::hevc, 0, 57},
                                           Source{Codec::h264, 5, 82}),
                         [](const auto& parameter) {
                             return std::string(rawValue(parameter.param.codec)) +
                                    (parameter.param.dropEvery > 0 ? "DroppingFrames" : "");
                         });

} // namespace
} // namespace lumenvale
