// Sound sources and the device inventory against the test session's PulseAudio
// server: the sink "lumenvale_speakers" (default), the virtual microphone
// "lumenvale_mic" (default source) fed through the sink "lumenvale_mic_input".

#include "Harness.h"
#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/MediaError.h"
#include "Probe.h"
#include "RecordTestSupport.h"
#include "audio/PulseAudioSource.h"

#include <cmath>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <numeric>
#include <optional>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

// Everything a source delivered.
struct Capture {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<float> samples;
    std::vector<std::int64_t> chunkFrames;
    std::vector<std::chrono::steady_clock::duration> chunkTimes;
    int channels = 0;
    int sampleRate = 0;
    std::vector<std::string> stopped;

    AudioSource::ChunkHandler chunks() {
        return [this](const AudioChunk& chunk) {
            std::lock_guard lock(mutex);
            samples.insert(samples.end(), chunk.samples.begin(), chunk.samples.end());
            chunkFrames.push_back(static_cast<std::int64_t>(chunk.samples.size()) / chunk.channels);
            chunkTimes.push_back(chunk.time);
            channels = chunk.channels;
            sampleRate = chunk.sampleRate;
        };
    }
    AudioSource::StoppedHandler stops() {
        return [this](const std::string& reason) {
            std::lock_guard lock(mutex);
            stopped.push_back(reason);
            changed.notify_all();
        };
    }
    // Root-mean-square level of the samples after the first `skipSeconds`.
    double level(double skipSeconds) {
        std::lock_guard lock(mutex);
        const auto skip = static_cast<std::size_t>(skipSeconds * 48000 * channels);
        double sum = 0;
        std::size_t count = 0;
        for (std::size_t i = skip; i < samples.size(); ++i, ++count) {
            sum += static_cast<double>(samples[i]) * samples[i];
        }
        return count == 0 ? 0 : std::sqrt(sum / static_cast<double>(count));
    }
};

TEST(AudioDevices, ListsMicrophonesWithoutMonitorsAndTheDefaults) {
    const AudioDevices::Inventory inventory = AudioDevices::query();
    ASSERT_TRUE(inventory.serverReachable);
    EXPECT_TRUE(AudioDevices::microphoneAvailable(inventory));
    EXPECT_EQ(inventory.defaultSink, "lumenvale_speakers");
    EXPECT_EQ(inventory.defaultSource, "lumenvale_mic");
    bool foundMic = false;
    for (const AudioDevices::Microphone& microphone : inventory.microphones) {
        EXPECT_FALSE(microphone.name.ends_with(".monitor")) << microphone.name;
        EXPECT_FALSE(microphone.description.empty());
        foundMic = foundMic || microphone.name == "lumenvale_mic";
    }
    EXPECT_TRUE(foundMic);
}

TEST(AudioDevices, AnUnreachableServerGivesNoMicrophoneAndAReadableError) {
    const ScopedEnv server("PULSE_SERVER", "unix:/nonexistent/lumenvale-no-server");
    const AudioDevices::Inventory inventory = AudioDevices::query(500ms);
    EXPECT_FALSE(inventory.serverReachable);
    EXPECT_FALSE(AudioDevices::microphoneAvailable(inventory));
    EXPECT_EQ(thrownMessage<MediaError>([] {
                  PulseAudioSource source(AudioKind::system, std::nullopt);
                  source.start([](const AudioChunk&) {}, [](const std::string&) {});
              }),
              "Lumenvale can’t reach the sound server.");
}

struct HearingCase {
    AudioKind kind;
    std::optional<std::string> microphoneID;
    std::string device; // what the source records
    int channels;
    std::string playedInto;
    bool hears;
};

class Hearing : public ::testing::TestWithParam<HearingCase> {};

TEST_P(Hearing, ASourceHearsWhatIsPlayedIntoItsDeviceOnly) {
    const HearingCase& expected = GetParam();
    PulseAudioSource source(expected.kind, expected.microphoneID);
    Capture capture;
    source.start(capture.chunks(), capture.stops());
    EXPECT_EQ(source.deviceName(), expected.device);
    EXPECT_EQ(source.channels(), expected.channels);
    {
        Tone tone(expected.playedInto, 440, 1.2,
                  expected.playedInto == "lumenvale_mic_input" ? 1 : 2);
    }
    source.stop();

    const double level = capture.level(0.4);
    if (expected.hears) {
        EXPECT_GT(level, 0.2);
    } else {
        EXPECT_LT(level, 0.001);
    }
    std::lock_guard lock(capture.mutex);
    ASSERT_FALSE(capture.chunkFrames.empty());
    EXPECT_EQ(capture.channels, expected.channels);
    EXPECT_EQ(capture.sampleRate, 48000);
    // Fragments of about 20 ms, each dated on the steady clock in step with its samples.
    EXPECT_LE(*std::max_element(capture.chunkFrames.begin() + 1, capture.chunkFrames.end()),
              48 * 45);
    const std::int64_t frames = std::accumulate(capture.chunkFrames.begin(),
                                                capture.chunkFrames.end() - 1, std::int64_t{0});
    const double spanSeconds =
        std::chrono::duration<double>(capture.chunkTimes.back() - capture.chunkTimes.front())
            .count();
    EXPECT_NEAR(spanSeconds, static_cast<double>(frames) / 48000, 0.03);
    EXPECT_TRUE(capture.stopped.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Devices, Hearing,
    ::testing::Values(HearingCase{AudioKind::system, std::nullopt, "lumenvale_speakers.monitor", 2,
                                  "lumenvale_speakers", true},
                      HearingCase{AudioKind::system, std::nullopt, "lumenvale_speakers.monitor", 2,
                                  "lumenvale_mic_input", false},
                      HearingCase{AudioKind::microphone, std::nullopt, "lumenvale_mic", 1,
                                  "lumenvale_mic_input", true},
                      HearingCase{AudioKind::microphone, "lumenvale_mic", "lumenvale_mic", 1,
                                  "lumenvale_speakers", false}));

TEST(PulseAudioSource, RefusesMonitorsAndMissingDevicesAsMicrophones) {
    const std::vector<std::pair<std::string, std::string>> refusals{
        {"lumenvale_speakers.monitor", "is the sound of an output, not a microphone."},
        {"lumenvale_nothing", "The microphone “lumenvale_nothing” is not connected."}};
    for (const auto& [name, message] : refusals) {
        PulseAudioSource source(AudioKind::microphone, name);
        EXPECT_TRUE(thrownMessage<MediaError>([&] {
                        source.start([](const AudioChunk&) {}, [](const std::string&) {});
                    }).ends_with(message))
            << name;
    }
}

TEST(PulseAudioSource, ReportsAMicrophoneThatIsUnplugged) {
    const std::string sink = run("pactl load-module module-null-sink sink_name=lumenvale_test_plug "
                                 "rate=48000 channels=1");
    const std::string remap =
        run("pactl load-module module-remap-source source_name=lumenvale_test_mic "
            "master=lumenvale_test_plug.monitor channels=1");
    PulseAudioSource source(AudioKind::microphone, "lumenvale_test_mic");
    Capture capture;
    source.start(capture.chunks(), capture.stops());
    std::this_thread::sleep_for(200ms);
    run("pactl unload-module " + remap);
    {
        std::unique_lock lock(capture.mutex);
        EXPECT_TRUE(capture.changed.wait_for(lock, 3s, [&] { return !capture.stopped.empty(); }));
        EXPECT_EQ(capture.stopped, std::vector<std::string>{"The microphone was disconnected."});
    }
    source.stop();
    run("pactl unload-module " + sink);
}

} // namespace
} // namespace lumenvale::testing
