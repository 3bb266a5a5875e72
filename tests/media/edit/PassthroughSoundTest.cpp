// The sound of a cut-only export: AAC packets copied end to end, in sync with the
// picture at every cut, the source's priming kept once, every track kept.

#include "LumenvaleMedia/EditRenderer.h"
#include "PassthroughMovies.h"
#include "Probe.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::audioPackets;
using testing::audioSamples;
using testing::quoted;
using testing::run;
using testing::TemporaryFolder;

constexpr double sampleRate = 48000;
constexpr double halfAacFrame = 512 / sampleRate;

// A tone during the first half of every second: it starts at 0, 1, 2, ... s.
const SoundTrack bursts{"aevalsrc=if(lt(mod(t\\,1)\\,0.5)\\,0.5*sin(2*PI*440*t)\\,0):s=48000", ""};

// The time the tone starts near `aroundSeconds`: the first loud sample after at least
// 50 ms of quiet, searched within 0.2 s.
double onsetNear(const std::vector<float>& samples, double aroundSeconds) {
    const auto from = static_cast<std::size_t>(std::max(0.0, aroundSeconds - 0.2) * sampleRate);
    const auto to =
        std::min(samples.size(), static_cast<std::size_t>((aroundSeconds + 0.2) * sampleRate));
    // The movie's very start counts as quiet before it.
    std::size_t quiet = from == 0 ? samples.size() : 0;
    for (std::size_t i = from; i < to; ++i) {
        if (std::abs(samples[i]) > 0.05F) {
            if (quiet >= static_cast<std::size_t>(0.05 * sampleRate)) {
                return static_cast<double>(i) / sampleRate;
            }
            quiet = 0;
        } else {
            ++quiet;
        }
    }
    return -1;
}

class PassthroughSoundTest : public testing::SharedFolderTest<PassthroughSoundTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeRecordingLikeMovie(*folder_ / "bursts.mp4", Codec::h264, 6, {bursts});
        // Lumenvale's layout with both sources recorded.
        makeRecordingLikeMovie(*folder_ / "layout.mp4", Codec::h264, 4,
                               {{"sine=frequency=440", "System audio and microphone"},
                                {"sine=frequency=660", "System audio"},
                                {"sine=frequency=880", "Microphone"}});
    }
};

TEST_F(PassthroughSoundTest, StaysInSyncAtEveryCutWithoutGaps) {
    struct Row {
        std::string what;
        std::vector<std::pair<double, double>> ranges;
        // Tone starts inside the kept clips: (nominal source second, clip index).
        std::vector<std::pair<double, std::size_t>> onsets;
    };
    const std::vector<Row> rows = {
        {"cuts in order",
         {{0, 1}, {1.5, 2.7}, {3.1, 5.2}, {5.5, 6}},
         {{0, 0}, {2, 1}, {4, 2}, {5, 2}}},
        {"starting mid-movie, reordered", {{2.3, 4.4}, {0.2, 1.9}}, {{3, 0}, {4, 0}, {1, 1}}},
        // The first clip ends 0.45 packet after a packet boundary and the second starts
        // 0.45 packet after one: rounding both the same way would put the sound 0.9
        // packet (19 ms) off; the second cut must make up for the first.
        {"rounding made up at the next cut",
         {{0, 263.0 / 600}, {633.0 / 600, 2.5}},
         {{0, 0}, {2, 1}}},
    };
    const auto source = *folder_ / "bursts.mp4";
    const auto sourceSamples = audioSamples(source, 0);
    for (const Row& row : rows) {
        TemporaryFolder folder;
        const auto output = folder / "edited.mp4";
        const EditDecision edit = editKeeping(6, row.ranges);
        EditRenderer::exportMovie(source, edit, Codec::h264, output, [](double) {});

        const auto samples = audioSamples(output, 0);
        const auto clipStarts = edit.clipStarts();
        for (const auto& [nominal, clip] : row.onsets) {
            const double inSource = onsetNear(sourceSamples, nominal);
            ASSERT_GE(inSource, 0) << row.what;
            const double expected = clipStarts[clip] + (inSource - edit.clips[clip].start);
            EXPECT_NEAR(onsetNear(samples, expected), expected, halfAacFrame + 0.0005)
                << row.what << ": tone of source second " << nominal;
        }

        // Packets end to end, the priming packet first and only once.
        const auto packets = audioPackets(output, 0);
        ASSERT_FALSE(packets.empty()) << row.what;
        EXPECT_EQ(packets.front().pts, -1024) << row.what;
        for (std::size_t i = 1; i < packets.size(); ++i) {
            ASSERT_EQ(packets[i].pts, packets[i - 1].pts + packets[i - 1].duration)
                << row.what << ": packet " << i;
        }
        EXPECT_EQ(traceCount(output, "media time: 1024"), 1) << row.what;
        const double soundSeconds =
            static_cast<double>(packets.back().pts + packets.back().duration) / sampleRate;
        EXPECT_NEAR(soundSeconds, edit.outputDuration(), halfAacFrame + 1e-9) << row.what;
    }
}

TEST_F(PassthroughSoundTest, KeepsEveryTrackWithItsNameAndDisposition) {
    TemporaryFolder folder;
    const auto source = *folder_ / "layout.mp4";
    const auto output = folder / "edited.mp4";
    EditDecision edit = editKeeping(4, {{0.4, 1.3}, {2.2, 3.6}});
    edit.volumes = {{1, 1.0}}; // a gain of exactly 1 still copies
    EditRenderer::exportMovie(source, edit, Codec::h264, output, [](double) {});

    const auto before = testing::probe(source).ofType("audio");
    const auto after = testing::probe(output).ofType("audio");
    ASSERT_EQ(after.size(), 3U);
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].codecName, "aac") << i;
        EXPECT_EQ(after[i].tags.at("handler_name"), before[i].tags.at("handler_name")) << i;
        EXPECT_EQ(after[i].isDefault, before[i].isDefault) << i;
        EXPECT_NEAR(after[i].durationSeconds, edit.outputDuration(), halfAacFrame + 0.001) << i;
        // Each track keeps its own sound: the 440, 660 and 880 Hz tones stay apart.
        EXPECT_GT(testing::audioRms(output, static_cast<int>(i), 0.2, 1.5), 0.05) << i;
    }
    const auto mixPackets = audioPackets(output, 0);
    const auto microphonePackets = audioPackets(output, 2);
    ASSERT_EQ(mixPackets.size(), microphonePackets.size());
    EXPECT_EQ(mixPackets.front().pts, microphonePackets.front().pts);
}

} // namespace
} // namespace lumenvale
