// The recording pipeline against the real thing: libx264, FFmpeg's AAC encoder and
// the test session's PulseAudio server; results read back with ffprobe and ffmpeg.

#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"

#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

constexpr PixelSize testSize{320, 240};
constexpr int testFps = 30;
const LocalDateTime startedAt{2024, 5, 6, 7, 8, 9};

// What the pipeline's handlers reported.
struct Reports {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::filesystem::path> finished;
    std::vector<std::string> stopped;

    RecordingPipeline::Handlers handlers() {
        return {[this](const std::filesystem::path& part) {
                    std::lock_guard lock(mutex);
                    finished.push_back(part);
                    changed.notify_all();
                },
                [this](const std::string& reason) {
                    std::lock_guard lock(mutex);
                    stopped.push_back(reason);
                    changed.notify_all();
                }};
    }
    bool waitFinished(std::size_t count, std::chrono::seconds limit) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] { return finished.size() >= count; });
    }
};

struct Recorder {
    CounterVideoSource* video = nullptr;
    std::unique_ptr<RecordingPipeline> pipeline;
};

Recorder makeRecorder(const std::filesystem::path& folder, bool systemAudio, bool microphone,
                      Reports& reports, Codec codec = Codec::h264) {
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
    Reports reports;
    Recorder recorder = makeRecorder(folder.path(), layout.system, layout.microphone, reports);
    const std::filesystem::path part = recorder.pipeline->start();
    EXPECT_EQ(part.parent_path(), folder.path());
    EXPECT_TRUE(part.filename().string().starts_with("Lumenvale-"));
    EXPECT_EQ(part.extension(), ".mp4");
    {
        Tone speakers("lumenvale_speakers", 440, 2.0);
        Tone voice("lumenvale_mic_input", 1000, 2.0, 1);
    }
    recorder.pipeline->stop();
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
    const std::vector<std::string> names = trackNameBoxes(part);
    for (std::size_t i = 0; i < audio.size(); ++i) {
        SCOPED_TRACE(layout.titles[i]);
        EXPECT_EQ(audio[i].codecName, "aac");
        EXPECT_EQ(audio[i].sampleRate, 48000);
        EXPECT_EQ(audio[i].channels, layout.channels[i]);
        EXPECT_EQ(audio[i].tags.at("handler_name"), layout.titles[i]);
        EXPECT_NE(std::find(names.begin(), names.end(), layout.titles[i]), names.end());
        EXPECT_EQ(audio[i].isDefault, i == 0);
        const double level = audioRms(part, static_cast<int>(i), 0.6, 0.8);
        const bool hears = layout.hearsSpeakers[i] || layout.hearsMicrophone[i];
        if (hears) {
            EXPECT_GT(level, 0.2);
        } else {
            EXPECT_LT(level, 0.001);
        }
        if (layout.hearsSpeakers[i] != layout.hearsMicrophone[i]) {
            const double expected = layout.hearsSpeakers[i] ? 440 : 1000;
            EXPECT_NEAR(toneFrequency(part, static_cast<int>(i), 0.6, 0.8), expected, 15);
        }
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

} // namespace
} // namespace lumenvale::testing
