// Pausing and resuming: one part per recorded stretch, and sound that runs on
// across the parts as one stream, in step with the picture.

#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"

#include <cmath>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

constexpr int testFps = 30;

TEST(Parts, PauseAndResumeTwiceMakeThreePartsWithContinuousSound) {
    TemporaryFolder folder;
    PipelineReports finished;
    RecordingPipeline pipeline(counterSources(true, true), Codec::h264, folder.path(),
                               LocalDateTime{2023, 12, 31, 23, 59, 58}, finished.handlers());
    Tone speakers("lumenvale_speakers", 440, 6.0);

    std::vector<std::filesystem::path> returned;
    returned.push_back(pipeline.start());
    std::this_thread::sleep_for(1300ms);
    EXPECT_EQ(pipeline.pause(), returned[0]);
    std::this_thread::sleep_for(500ms);
    returned.push_back(pipeline.resume());
    EXPECT_TRUE(finished.waitForParts(1))
        << "a paused part with sound is finished once the next opens";
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(pipeline.pause(), returned[1]);
    std::this_thread::sleep_for(400ms);
    returned.push_back(pipeline.resume());
    std::this_thread::sleep_for(1200ms);
    pipeline.stop();
    const RecordingStats stats = pipeline.stats();

    ASSERT_EQ(finished.finished, returned);
    EXPECT_TRUE(finished.stopped.empty());
    EXPECT_EQ(stats.parts, 3);

    std::int64_t lastCounter = -1;
    double videoTotal = 0;
    std::int64_t audioSamples = 0;
    std::int64_t nextAudioPts = -1024; // the priming, at the very start only
    for (std::size_t k = 0; k < returned.size(); ++k) {
        SCOPED_TRACE("part " + std::to_string(k + 1));
        const MovieInfo info = probe(returned[k]);
        EXPECT_EQ(info.tags.at("lumenvale_part"), std::to_string(k + 1));
        EXPECT_EQ(info.tags.at("lumenvale_recording"), pipeline.recordingID().text());
        EXPECT_EQ(info.tags.at("lumenvale_started"), "2023-12-31T23:59:58");

        // The picture: the frames captured while this part was attached, in order,
        // after those of the part before, with the paused stretch left out.
        const std::vector<std::int64_t> counters = frameCounters(returned[k]);
        ASSERT_FALSE(counters.empty());
        EXPECT_TRUE(std::is_sorted(counters.begin(), counters.end()));
        EXPECT_EQ(counters.back() - counters.front() + 1,
                  static_cast<std::int64_t>(counters.size()))
            << "no frame is lost while the writer keeps up";
        if (k > 0) {
            EXPECT_GT(counters.front(), lastCounter + 8) << "frames of the pause are not recorded";
        }
        lastCounter = counters.back();
        const double videoSeconds = static_cast<double>(counters.size()) / testFps;
        EXPECT_NEAR(info.ofType("video")[0].startSeconds, 0, 1e-9) << "video restarts at 0";

        // The sound: packets continue the stream of the part before, once placed at
        // the recording's sample counter (lumenvale_audio_offset).
        const std::int64_t offset = std::stoll(info.tags.at("lumenvale_audio_offset"));
        EXPECT_EQ(offset, static_cast<std::int64_t>(std::llround(videoTotal * 48000)));
        for (int track = 0; track < 3; ++track) {
            const std::vector<AudioPacket> packets = audioPackets(returned[k], track);
            ASSERT_FALSE(packets.empty());
            std::int64_t expected = nextAudioPts;
            for (const AudioPacket& packet : packets) {
                ASSERT_EQ(packet.pts + offset, expected) << "track " << track;
                expected += packet.duration;
            }
            if (track == 0) {
                audioSamples = expected;
                const double audioEnd =
                    static_cast<double>(packets.back().pts + packets.back().duration) / 48000;
                // A part's sound may hand its last two AAC frames on to the next part.
                EXPECT_NEAR(audioEnd, videoSeconds, k + 1 < returned.size() ? 0.07 : 0.03);
            }
        }
        nextAudioPts = audioSamples;
        videoTotal += videoSeconds;
        EXPECT_GT(audioRms(returned[k], 1, 0.2, videoSeconds - 0.4), 0.2);
    }
    EXPECT_NEAR(stats.writtenSeconds, videoTotal, 1e-9);
    EXPECT_NEAR(static_cast<double>(audioSamples), videoTotal * 48000, 1024)
        << "the whole recording's sound lasts as long as its picture";
}

TEST(Parts, PartsPausedBeforeTheirFirstFrameAreReportedAndTheSoundStaysWithThePicture) {
    TemporaryFolder folder;
    PipelineReports finished;
    RecordingPipeline pipeline(counterSources(true), Codec::h264, folder.path(), LocalDateTime{},
                               finished.handlers());
    const std::filesystem::path empty = pipeline.start();
    EXPECT_EQ(pipeline.pause(), empty);
    std::this_thread::sleep_for(300ms);
    const std::filesystem::path second = pipeline.resume();
    std::this_thread::sleep_for(1000ms);
    pipeline.pause();
    std::this_thread::sleep_for(300ms);
    // Resumed and paused again at once (a double press), then stopped while paused.
    const std::filesystem::path emptyAtTheEnd = pipeline.resume();
    pipeline.pause();
    pipeline.stop();
    EXPECT_EQ(finished.finished,
              (std::vector<std::filesystem::path>{empty, second, emptyAtTheEnd}));
    EXPECT_TRUE(finished.stopped.empty());
    const MovieInfo info = probe(second);
    EXPECT_EQ(info.tags.at("lumenvale_part"), "2");
    const std::int64_t frames = info.ofType("video").at(0).frames;
    EXPECT_GT(frames, 20);
    // The encoders' last sound goes to the last part with a picture, not to the empty
    // part after it that a save leaves out.
    const std::vector<AudioPacket> packets = audioPackets(second, 0);
    ASSERT_FALSE(packets.empty());
    const double audioEnd =
        static_cast<double>(packets.back().pts + packets.back().duration) / 48000;
    EXPECT_NEAR(audioEnd, static_cast<double>(frames) / testFps, 1024.0 / 48000);
}

// The first sample above half the beep's amplitude, in seconds of the movie.
double beepOnset(const std::filesystem::path& part) {
    const std::vector<float> samples = decodeMono(part, 0);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) > 0.25f) {
            // sin reaches 0.5 a twelfth of a period (4 samples at 1 kHz) after it starts.
            return (static_cast<double>(i) - 4) / 48000;
        }
    }
    return -1;
}

TEST(Parts, SoundStaysInStepWithThePictureInEveryPart) {
    TemporaryFolder folder;
    PipelineReports finished;
    RecordingSources sources = counterSources();
    auto beeper = std::make_unique<BeepAudioSource>();
    CounterVideoSource& frames = counterVideo(sources);
    BeepAudioSource& beeps = *beeper;
    sources.microphone = std::move(beeper);
    RecordingPipeline pipeline(std::move(sources), Codec::h264, folder.path(), LocalDateTime{},
                               finished.handlers());
    const auto now = [] {
        return std::chrono::steady_clock::now().time_since_epoch();
    };
    // One beep in each part, at times that fall between video frames on purpose.
    std::vector<std::chrono::steady_clock::duration> beepTimes;
    std::vector<std::filesystem::path> parts;
    const std::vector<std::chrono::milliseconds> beepAfter{617ms, 503ms, 411ms};
    for (std::size_t k = 0; k < 3; ++k) {
        parts.push_back(k == 0 ? pipeline.start() : pipeline.resume());
        beepTimes.push_back(now() + beepAfter[k]);
        beeps.beepAt(beepTimes.back());
        std::this_thread::sleep_for(1200ms);
        if (k < 2) {
            pipeline.pause();
            std::this_thread::sleep_for(300ms);
        }
    }
    pipeline.stop();
    ASSERT_EQ(finished.finished, parts);

    for (std::size_t k = 0; k < parts.size(); ++k) {
        SCOPED_TRACE("part " + std::to_string(k + 1));
        const std::vector<std::int64_t> counters = frameCounters(parts[k]);
        ASSERT_FALSE(counters.empty());
        const double expected =
            std::chrono::duration<double>(beepTimes[k] - frames.frameTime(counters.front()))
                .count();
        EXPECT_NEAR(beepOnset(parts[k]), expected, 0.001)
            << "the beep sits where the steady clock puts it against the part's first frame";
    }
}

} // namespace
} // namespace lumenvale::testing
