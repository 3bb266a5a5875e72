// The recording pipeline against the real thing: libx264, FFmpeg's AAC encoder and
// the test session's PulseAudio server and screen; results read back with ffprobe and ffmpeg.

#include "CaptureTestSupport.h"
#include "Harness.h"
#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"

#include <cmath>
#include <gtest/gtest.h>
#include <sstream>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

constexpr int testFps = 30;
const LocalDateTime startedAt{2024, 5, 6, 7, 8, 9};

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
    RecordingPipeline pipeline(counterSources(layout.system, layout.microphone), Codec::h264,
                               folder.path(), startedAt, reports.handlers());
    std::filesystem::path part;
    {
        Tone speakers("lumenvale_speakers", 440, 2.5);
        Tone voice("lumenvale_mic_input", 1000, 2.5, 1);
        std::this_thread::sleep_for(300ms);
        part = pipeline.start();
    }
    pipeline.stop();
    EXPECT_EQ(part.parent_path(), folder.path());
    EXPECT_TRUE(part.filename().string().starts_with("Lumenvale-"));
    EXPECT_EQ(part.extension(), ".mp4");
    ASSERT_EQ(reports.finished, std::vector<std::filesystem::path>{part});
    EXPECT_TRUE(reports.stopped.empty());

    const MovieInfo info = probe(part);
    EXPECT_EQ(info.tags.at("lumenvale_recording"), pipeline.recordingID().text());
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
    RecordingSources sources = counterSources(true);
    counterVideo(sources).endAfter(45, "The window closed.");
    RecordingPipeline pipeline(std::move(sources), Codec::h264, folder.path(), startedAt,
                               reports.handlers());
    const std::filesystem::path part = pipeline.start();
    ASSERT_TRUE(reports.waitForStop());
    pipeline.stop();
    pipeline.stop(); // a second stop changes nothing
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
    RecordingPipeline pipeline(counterSources(false, true), Codec::h264, partsFolder, startedAt,
                               reports.handlers());
    const std::filesystem::path first = pipeline.start();
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(pipeline.pause(), first);
    std::filesystem::rename(partsFolder, folder / "moved");
    EXPECT_TRUE(thrownMessage<MediaError>([&] {
                    pipeline.resume();
                }).starts_with("Couldn’t create the recording file"));
    std::filesystem::rename(folder / "moved", partsFolder);
    EXPECT_TRUE(pipeline.pause().empty()) << "still paused, not recording";
    const std::filesystem::path second = pipeline.resume();
    std::this_thread::sleep_for(700ms);
    pipeline.stop();
    EXPECT_EQ(reports.finished, (std::vector<std::filesystem::path>{first, second}));
    EXPECT_EQ(probe(second).tags.at("lumenvale_part"), "2");
    EXPECT_EQ(pipeline.stats().parts, 2);
}

TEST(RecordingPipelineFailures, AStartThatFailsLeavesNoPartBehind) {
    TemporaryFolder folder;
    PipelineReports reports;
    RecordingSources sources = counterSources();
    sources.microphone = AudioDevices::open(AudioKind::microphone, "lumenvale_no_such_source");
    RecordingPipeline pipeline(std::move(sources), Codec::h264, folder.path(), startedAt,
                               reports.handlers());
    EXPECT_EQ(thrownMessage<MediaError>([&] { pipeline.start(); }),
              "The microphone “lumenvale_no_such_source” is not connected.");
    pipeline.stop();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    EXPECT_TRUE(reports.finished.empty());
}

// MARK: recordings of the screen

// A capture of the screen that notes when its first frame was due, so that a change
// on the screen can be placed in the movie.
class TimedCapture final : public VideoSource {
  public:
    explicit TimedCapture(CaptureRequest request) : capture_(std::move(request)) {}
    PixelSize size() const override { return capture_.size(); }
    int fps() const override { return capture_.fps(); }
    void start(FrameHandler onFrame, StoppedHandler onStopped) override {
        capture_.start(
            [this, onFrame = std::move(onFrame)](const VideoFrame& frame) {
                if (!started_.exchange(true)) {
                    firstFrameTime_ = frame.time;
                }
                onFrame(frame);
            },
            std::move(onStopped));
    }
    void stop() override { capture_.stop(); }
    CaptureStats stats() const override { return capture_.stats(); }
    // The movie time of a moment of the steady clock.
    double movieSeconds(std::chrono::steady_clock::time_point time) const {
        return std::chrono::duration<double>(time.time_since_epoch() - firstFrameTime_.load())
            .count();
    }

  private:
    CaptureX11 capture_;
    std::atomic<bool> started_{false};
    std::atomic<std::chrono::steady_clock::duration> firstFrameTime_{};
};

const x11::PixelRect screenArea{100, 100, 320, 240};
const Colour grey{128, 128, 128};
const Colour red{220, 30, 30};

struct ScreenRecorder {
    TimedCapture* capture = nullptr;
    std::unique_ptr<RecordingPipeline> pipeline;
};

ScreenRecorder recordScreenArea(const std::filesystem::path& folder, PipelineReports& reports,
                                bool pointer) {
    CaptureRequest request =
        captureRequest(CaptureArea{x11::toRect(screenArea)}, {screenArea.width, screenArea.height});
    request.showsPointer = pointer;
    auto capture = std::make_unique<TimedCapture>(request);
    ScreenRecorder recorder;
    recorder.capture = capture.get();
    RecordingSources sources;
    sources.video = std::move(capture);
    recorder.pipeline = std::make_unique<RecordingPipeline>(std::move(sources), Codec::h264, folder,
                                                            startedAt, reports.handlers());
    return recorder;
}

// The decoded frames of a movie of the screen area, one for each frame time of the
// capture clock: what a player shows then (frames of a still screen are not in the
// movie; the frame before lasts longer).
std::vector<Picture> decodeArea(const std::filesystem::path& movie) {
    std::vector<Picture> pictures;
    for (const std::string& bgra :
         rawFrames("-i " + quoted(movie) + " -map 0:v:0 -vf fps=" + std::to_string(testFps), "bgra",
                   static_cast<std::size_t>(screenArea.width * screenArea.height * 4))) {
        Picture& picture = pictures.emplace_back();
        picture.size = {screenArea.width, screenArea.height};
        picture.bgra.assign(bgra.begin(), bgra.end());
    }
    return pictures;
}

// Pixels of the 25 x 25 square around (x, y) far from `colour`.
int unlike(const Picture& picture, std::int64_t x, std::int64_t y, const Colour& colour) {
    return countAround(picture, x, y, 12, [&](const Colour& c) { return !near(c, colour, 40); });
}

// A still screen with one change: the change shows from its time on, the still end
// lasts until the stop, and the movie ends on the still picture; the still stretches
// were not read from the screen.
TEST(RecordingTheScreen, AStillScreenShowsItsOneChangeAtItsTimeAndLastsUntilTheStop) {
    const x11::XConnection& connection = testConnection();
    TestWindow backdrop(connection, screenArea, grey, Management::unmanaged);
    TemporaryFolder folder;
    PipelineReports reports;
    ScreenRecorder recorder = recordScreenArea(folder.path(), reports, false);
    const std::filesystem::path part = recorder.pipeline->start();
    std::this_thread::sleep_for(1s);
    const auto beforeChange = std::chrono::steady_clock::now();
    paintChild(connection, backdrop.id(), {0, 100, 320, 40}, red);
    sync(connection);
    const auto afterChange = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(2s);
    const auto stoppedAt = std::chrono::steady_clock::now();
    recorder.pipeline->stop();
    const CaptureStats stats = recorder.capture->stats();

    const std::vector<Picture> frames = decodeArea(part);
    ASSERT_GT(frames.size(), 60u);
    std::size_t firstRed = 0;
    while (firstRed < frames.size() && !near(frames[firstRed].at(160, 120), red, 24)) {
        EXPECT_TRUE(near(frames[firstRed].at(160, 120), grey, 24)) << "frame " << firstRed;
        ++firstRed;
    }
    ASSERT_LT(firstRed, frames.size()) << "the change never showed";
    const double shownAt = static_cast<double>(firstRed) / testFps;
    EXPECT_GE(shownAt, recorder.capture->movieSeconds(beforeChange) - 2.0 / testFps);
    EXPECT_LE(shownAt, recorder.capture->movieSeconds(afterChange) + 2.0 / testFps);
    for (std::size_t frame = firstRed; frame < frames.size(); ++frame) {
        ASSERT_TRUE(near(frames[frame].at(160, 120), red, 24)) << "frame " << frame;
    }
    EXPECT_TRUE(near(frames.back().at(160, 20), grey, 24));

    const double recorded = recorder.capture->movieSeconds(stoppedAt);
    const StreamInfo video = probe(part).ofType("video").at(0);
    EXPECT_NEAR(video.durationSeconds, recorded, 0.1);
    EXPECT_NEAR(static_cast<double>(frames.size()), recorded * testFps, 3);
    EXPECT_GT(stats.unchanged, static_cast<std::int64_t>(frames.size()) * 3 / 4);

    // The still stretches are not encoded frame by frame, yet a keyframe comes every
    // two seconds of movie time.
    std::istringstream packets(run("ffprobe -v error -select_streams v:0 -show_entries "
                                   "packet=pts_time,flags -of csv=p=0 " +
                                   quoted(part)));
    std::size_t encoded = 0;
    std::vector<double> keyframes;
    for (std::string line; std::getline(packets, line); ++encoded) {
        if (line.find(",K") != std::string::npos) {
            keyframes.push_back(std::stod(line));
        }
    }
    EXPECT_LT(encoded, frames.size() / 2);
    EXPECT_EQ(keyframes, (std::vector<double>{0.0, 2.0}));
}

TEST(RecordingTheScreen, APointerMovingOverAStillScreenIsRecordedInItsNewPlace) {
    const x11::XConnection& connection = testConnection();
    TestWindow backdrop(connection, screenArea, grey, Management::unmanaged);
    warpPointer(connection, screenArea.x + 160, screenArea.y + 60);
    TemporaryFolder folder;
    PipelineReports reports;
    ScreenRecorder recorder = recordScreenArea(folder.path(), reports, true);
    const std::filesystem::path part = recorder.pipeline->start();
    std::this_thread::sleep_for(700ms);
    warpPointer(connection, screenArea.x + 80, screenArea.y + 180);
    std::this_thread::sleep_for(700ms);
    recorder.pipeline->stop();

    const std::vector<Picture> frames = decodeArea(part);
    ASSERT_GT(frames.size(), 30u);
    const std::size_t last = frames.size() - 1;
    EXPECT_GT(unlike(frames[0], 164, 64, grey), 20) << "the pointer where it was";
    EXPECT_EQ(unlike(frames[0], 84, 184, grey), 0);
    EXPECT_GT(unlike(frames[last], 84, 184, grey), 20) << "the pointer where it went";
    EXPECT_EQ(unlike(frames[last], 164, 64, grey), 0) << "and nothing left where it was";
}

} // namespace
} // namespace lumenvale::testing
