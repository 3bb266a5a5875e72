// The recording pipeline against the real thing: libx264, FFmpeg's AAC encoder and
// the test session's PulseAudio server; results read back with ffprobe and ffmpeg.

#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"

#include <cmath>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

constexpr PixelSize testSize{320, 240};
constexpr int testFps = 30;
const LocalDateTime startedAt{2024, 5, 6, 7, 8, 9};

struct Recorder {
    CounterVideoSource* video = nullptr;
    std::unique_ptr<RecordingPipeline> pipeline;
};

Recorder makeRecorder(const std::filesystem::path& folder, bool systemAudio, bool microphone,
                      PipelineReports& reports, Codec codec = Codec::h264) {
    RecordingSources sources;
    auto video = std::make_unique<CounterVideoSource>(testSize, testFps);
    Recorder recorder;
    recorder.video = video.get();
    sources.video = std::move(video);
    if (systemAudio) {
        sources.systemAudio = AudioDevices::open(AudioKind::system);
    }
    if (microphone) {
        sources.microphone = AudioDevices::open(AudioKind::microphone);
    }
    recorder.pipeline = std::make_unique<RecordingPipeline>(std::move(sources), codec, folder,
                                                            startedAt, reports.handlers());
    return recorder;
}

struct LayoutCase {
    bool system;
    bool microphone;
    std::vector<std::string> titles;
    std::vector<int> channels;
    // Which tracks hear the speakers' 440 Hz and the microphone's 1000 Hz tone.
    std::vector<bool> hearsSpeakers;
    std::vector<bool> hearsMicrophone;
};

class TrackLayout : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(TrackLayout, TracksTitlesAndSoundFollowTheRecordedSources) {
    const LayoutCase& layout = GetParam();
    TemporaryFolder folder;
    PipelineReports reports;
    Recorder recorder = makeRecorder(folder.path(), layout.system, layout.microphone, reports);
    std::filesystem::path part;
    {
        Tone speakers("lumenvale_speakers", 440, 2.5);
        Tone voice("lumenvale_mic_input", 1000, 2.5, 1);
        std::this_thread::sleep_for(300ms);
        part = recorder.pipeline->start();
    }
    recorder.pipeline->stop();
    EXPECT_EQ(part.parent_path(), folder.path());
    EXPECT_TRUE(part.filename().string().starts_with("Lumenvale-"));
    EXPECT_EQ(part.extension(), ".mp4");
    ASSERT_EQ(reports.finished, std::vector<std::filesystem::path>{part});
    EXPECT_TRUE(reports.stopped.empty());

    const MovieInfo info = probe(part);
    EXPECT_EQ(info.tags.at("lumenvale_recording"), recorder.pipeline->recordingID().text());
    EXPECT_EQ(info.tags.at("lumenvale_part"), "1");
    EXPECT_EQ(info.tags.at("lumenvale_started"), "2024-05-06T07:08:09");
    ASSERT_FALSE(info.streams.empty());
    EXPECT_EQ(info.streams[0].codecType, "video");
    EXPECT_EQ(info.streams[0].codecTag, "avc1");
    EXPECT_EQ(info.streams[0].width, 320);

    const auto audio = info.ofType("audio");
    ASSERT_EQ(audio.size(), layout.titles.size());
    std::vector<std::string> names; // of the tracks' "name" boxes
    for (const Box& box : mp4Boxes(part, "moov/trak/udta")) {
        if (box.type == "name") {
            names.push_back(readFile(part).substr(box.offset + 8, box.size - 8));
        }
    }
    for (std::size_t i = 0; i < audio.size(); ++i) {
        SCOPED_TRACE(layout.titles[i]);
        EXPECT_EQ(audio[i].codecName, "aac");
        EXPECT_EQ(audio[i].sampleRate, 48000);
        EXPECT_EQ(audio[i].channels, layout.channels[i]);
        EXPECT_EQ(audio[i].tags.at("handler_name"), layout.titles[i]);
        EXPECT_NE(std::find(names.begin(), names.end(), layout.titles[i]), names.end());
        EXPECT_EQ(audio[i].isDefault, i == 0);
        // The tones (amplitude 0.5), by their frequencies; ffmpeg's downmix to mono
        // adds a stereo track's channels at -3 dB. The sound server may drop a few
        // milliseconds on a busy machine.
        const double amplitude = layout.channels[i] == 2 ? 0.5 * std::sqrt(2.0) : 0.5;
        const double speakers = toneAmplitude(part, static_cast<int>(i), 440, 0.4, 1.6);
        const double voice = toneAmplitude(part, static_cast<int>(i), 1000, 0.4, 1.6);
        EXPECT_NEAR(speakers, layout.hearsSpeakers[i] ? amplitude : 0, 0.1);
        EXPECT_NEAR(voice, layout.hearsMicrophone[i] ? amplitude : 0, 0.1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, TrackLayout,
    ::testing::Values(LayoutCase{false, false, {}, {}, {}, {}},
                      LayoutCase{true, false, {"System audio"}, {2}, {true}, {false}},
                      LayoutCase{false, true, {"Microphone"}, {1}, {false}, {true}},
                      LayoutCase{true,
                                 true,
                                 {"System audio and microphone", "System audio", "Microphone"},
                                 {2, 2, 1},
                                 {true, true, false},
                                 {true, false, true}}));

TEST(RecordingPipelineFailures, ASourceThatEndsByItselfIsReportedOnceAndTheRecordingIsKept) {
    TemporaryFolder folder;
    PipelineReports reports;
    Recorder recorder = makeRecorder(folder.path(), true, false, reports);
    recorder.video->endAfter(45, "The window closed.");
    const std::filesystem::path part = recorder.pipeline->start();
    ASSERT_TRUE(reports.waitForStop());
    recorder.pipeline->stop();
    recorder.pipeline->stop(); // a second stop changes nothing
    EXPECT_EQ(reports.stopped, std::vector<std::string>{"The window closed."});
    EXPECT_EQ(reports.finished, std::vector<std::filesystem::path>{part});
    const std::vector<std::int64_t> counters = frameCounters(part);
    ASSERT_EQ(counters.size(), 45u);
    EXPECT_EQ(counters.back(), 44);
    EXPECT_NEAR(probe(part).ofType("audio").at(0).durationSeconds, 1.5, 0.07);
}

TEST(RecordingPipelineFailures, AResumeThatCannotCreateItsPartStaysPaused) {
    TemporaryFolder folder;
    const std::filesystem::path partsFolder = folder / "parts";
    std::filesystem::create_directory(partsFolder);
    PipelineReports reports;
    Recorder recorder = makeRecorder(partsFolder, false, true, reports);
    const std::filesystem::path first = recorder.pipeline->start();
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(recorder.pipeline->pause(), first);
    std::filesystem::rename(partsFolder, folder / "moved");
    try {
        recorder.pipeline->resume();
        ADD_FAILURE() << "resume() created a part in a folder that is gone";
    } catch (const MediaError& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with("Couldn’t create the recording file"))
            << error.what();
    }
    std::filesystem::rename(folder / "moved", partsFolder);
    EXPECT_TRUE(recorder.pipeline->pause().empty()) << "still paused, not recording";
    const std::filesystem::path second = recorder.pipeline->resume();
    std::this_thread::sleep_for(700ms);
    recorder.pipeline->stop();
    EXPECT_EQ(reports.finished, (std::vector<std::filesystem::path>{first, second}));
    EXPECT_EQ(probe(second).tags.at("lumenvale_part"), "2");
    EXPECT_EQ(recorder.pipeline->stats().parts, 2);
}

TEST(RecordingPipelineFailures, AStartThatFailsLeavesNoPartBehind) {
    TemporaryFolder folder;
    PipelineReports reports;
    RecordingSources sources;
    sources.video = std::make_unique<CounterVideoSource>(testSize, testFps);
    sources.microphone = AudioDevices::open(AudioKind::microphone, "lumenvale_no_such_source");
    RecordingPipeline pipeline(std::move(sources), Codec::h264, folder.path(), startedAt,
                               reports.handlers());
    try {
        pipeline.start();
        ADD_FAILURE() << "started with a microphone that does not exist";
    } catch (const MediaError& error) {
        EXPECT_STREQ(error.what(), "The microphone “lumenvale_no_such_source” is not connected.");
    }
    pipeline.stop();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    EXPECT_TRUE(reports.finished.empty());
}

} // namespace
} // namespace lumenvale::testing
