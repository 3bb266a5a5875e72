#include "RecordTestSupport.h"

#include "Harness.h"
#include "LumenvaleMedia/AudioDevices.h"
#include "Probe.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <gtest/gtest.h>
#include <numbers>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

namespace lumenvale::testing {
namespace {

// A PulseAudio null sink renders up to its latency ahead, two seconds when nobody
// asks for less, so a recording that connects to an idle null sink's monitor hears
// nothing until that block has played out. Real sound cards have no such gap. For
// the tests, a low-latency reader stays on each test sink's monitor all the time.
class WarmSinks : public ::testing::Environment {
  public:
    void SetUp() override {
        av_log_set_level(AV_LOG_WARNING); // the encoders' statistics are not test output
        if (std::getenv(recordUntilKilledVariable) != nullptr) {
            return;
        }
        for (const char* monitor : {"lumenvale_speakers.monitor", "lumenvale_mic_input.monitor"}) {
            readers_.emplace_back(std::vector<std::string>{
                "parec", std::string("--device=") + monitor, "--latency-msec=20", "--rate=48000",
                "--file-format=wav", "/dev/null"});
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    }
    void TearDown() override { readers_.clear(); }

  private:
    std::deque<ChildProcess> readers_;
};

[[maybe_unused]] const auto* const warmSinks = ::testing::AddGlobalTestEnvironment(new WarmSinks);

} // namespace

CounterVideoSource::CounterVideoSource(PixelSize size, int fps)
    : size_(size), fps_(fps), pixels_(static_cast<std::size_t>(size.width * size.height * 4)) {}

CounterVideoSource::~CounterVideoSource() {
    stop();
}

void CounterVideoSource::endAfter(std::int64_t frames, std::string reason) {
    endAfter_ = frames;
    endReason_ = std::move(reason);
}

void CounterVideoSource::start(FrameHandler onFrame, StoppedHandler onStopped) {
    onFrame_ = std::move(onFrame);
    onStopped_ = std::move(onStopped);
    quit_ = false;
    thread_ = std::thread([this] { run(); });
}

void CounterVideoSource::stop() {
    quit_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::chrono::steady_clock::duration CounterVideoSource::frameTime(std::int64_t index) const {
    std::lock_guard lock(timesMutex_);
    return times_.at(static_cast<std::size_t>(index));
}

CaptureStats CounterVideoSource::stats() const {
    CaptureStats stats;
    stats.delivered = delivered_;
    return stats;
}

void CounterVideoSource::paint(std::int64_t index) {
    const auto width = static_cast<std::size_t>(size_.width);
    const auto height = static_cast<std::size_t>(size_.height);
    const std::size_t band = height / 4;
    for (std::size_t y = 0; y < height; ++y) {
        std::uint8_t* row = pixels_.data() + y * width * 4;
        for (std::size_t x = 0; x < width; ++x) {
            std::uint8_t* pixel = row + x * 4;
            if (y < band) {
                const std::size_t bit = 15 - x * 16 / width;
                const std::uint8_t level = ((index >> bit) & 1) != 0 ? 255 : 0;
                pixel[0] = pixel[1] = pixel[2] = level;
            } else {
                pixel[0] = static_cast<std::uint8_t>(static_cast<std::size_t>(index) * 7 + x);
                pixel[1] = static_cast<std::uint8_t>(static_cast<std::size_t>(index) * 3 + y);
                pixel[2] = static_cast<std::uint8_t>(128 + index);
            }
            pixel[3] = 255;
        }
    }
}

void CounterVideoSource::run() {
    const auto start = std::chrono::steady_clock::now();
    for (std::int64_t index = 0; !quit_; ++index) {
        std::this_thread::sleep_until(start +
                                      std::chrono::nanoseconds(index * 1'000'000'000 / fps_));
        if (quit_) {
            return;
        }
        if (endAfter_ >= 0 && index == endAfter_) {
            if (onStopped_) {
                onStopped_(endReason_);
            }
            return;
        }
        paint(index);
        VideoFrame frame;
        frame.bgra = pixels_.data();
        frame.strideBytes = size_.width * 4;
        frame.size = size_;
        frame.time = std::chrono::steady_clock::now().time_since_epoch();
        frame.index = index;
        {
            std::lock_guard lock(timesMutex_);
            times_.push_back(frame.time);
        }
        onFrame_(frame);
        ++delivered_;
    }
}

RecordingSources counterSources(bool systemAudio, bool microphone) {
    RecordingSources sources;
    sources.video = std::make_unique<CounterVideoSource>(PixelSize{320, 240}, 30);
    if (systemAudio) {
        sources.systemAudio = AudioDevices::open(AudioKind::system);
    }
    if (microphone) {
        sources.microphone = AudioDevices::open(AudioKind::microphone);
    }
    return sources;
}

RecordingPipeline::Handlers PipelineReports::handlers() {
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

bool PipelineReports::waitForParts(std::size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(5),
                            [&] { return finished.size() >= count; });
}

bool PipelineReports::waitForStop() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(5), [&] { return !stopped.empty(); });
}

std::vector<std::int64_t> frameCounters(const std::filesystem::path& movie) {
    std::vector<std::int64_t> counters;
    for (const std::string& gray :
         rawFrames("-i " + quoted(movie) + " -map 0:v:0 -vf scale=16:4:flags=area", "gray", 64)) {
        std::int64_t value = 0;
        for (std::size_t column = 0; column < 16; ++column) {
            value = value * 2 + (static_cast<unsigned char>(gray[column]) > 128 ? 1 : 0);
        }
        counters.push_back(value);
    }
    return counters;
}

Tone::Tone(const std::string& sink, double frequency, double seconds, int channels,
           double amplitude) {
    static std::atomic<int> serial{0};
    file_ =
        std::filesystem::temp_directory_path() /
        ("lumenvale-tone-" + std::to_string(::getpid()) + "-" + std::to_string(serial++) + ".raw");
    const auto frames = static_cast<std::size_t>(seconds * 48000);
    std::vector<float> samples(frames * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < frames; ++i) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / 48000;
        for (int channel = 0; channel < channels; ++channel) {
            samples[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)] =
                static_cast<float>(amplitude * std::sin(phase));
        }
    }
    std::ofstream(file_, std::ios::binary)
        .write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(float)));
    const std::string command =
        "pacat --device=" + sink +
        " --format=float32le --rate=48000 --channels=" + std::to_string(channels) +
        " --latency-msec=10 --raw " + quoted(file_);
    player_ = std::thread([command] { run(command); });
}

Tone::~Tone() {
    player_.join();
    std::filesystem::remove(file_);
}

BeepAudioSource::~BeepAudioSource() {
    stop();
}

void BeepAudioSource::beepAt(std::chrono::steady_clock::duration time) {
    std::lock_guard lock(mutex_);
    beeps_.push_back(time);
}

void BeepAudioSource::start(ChunkHandler onChunk, StoppedHandler) {
    onChunk_ = std::move(onChunk);
    quit_ = false;
    thread_ = std::thread([this] { run(); });
}

void BeepAudioSource::stop() {
    quit_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void BeepAudioSource::run() {
    constexpr std::int64_t chunkFrames = 480;
    std::vector<float> samples(chunkFrames);
    const auto start = std::chrono::steady_clock::now().time_since_epoch();
    for (std::int64_t chunk = 0; !quit_; ++chunk) {
        const auto time = start + std::chrono::milliseconds(10 * chunk);
        std::this_thread::sleep_until(
            std::chrono::steady_clock::time_point(time + std::chrono::milliseconds(10)));
        std::fill(samples.begin(), samples.end(), 0.0f);
        {
            std::lock_guard lock(mutex_);
            for (const auto beep : beeps_) {
                // Sample i of this chunk lies (time - beep) + i / 48000 seconds into the beep.
                const std::int64_t offset =
                    std::chrono::duration_cast<std::chrono::nanoseconds>(time - beep).count() *
                    48000 / 1'000'000'000;
                for (std::int64_t i = 0; i < chunkFrames; ++i) {
                    const std::int64_t into = offset + i;
                    if (into >= 0 && into < 48000 * 60 / 1000) {
                        samples[static_cast<std::size_t>(i)] =
                            static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000.0 *
                                                              static_cast<double>(into) / 48000));
                    }
                }
            }
        }
        onChunk_(AudioChunk{samples, 1, 48000, time});
    }
}

std::vector<float> decodeMono(const std::filesystem::path& movie, int audioStream,
                              double startSeconds, double durationSeconds) {
    // -copyts keeps the file's own timestamps (a part's sound may start before 0);
    // atrim then cuts at the movie's time 0 exactly.
    return decodeFloats("-copyts -i " + quoted(movie) + " -map 0:a:" + std::to_string(audioStream) +
                        " -af atrim=start=" + std::to_string(startSeconds) + ":end=" +
                        std::to_string(startSeconds + durationSeconds) + " -ac 1 -ar 48000");
}

double toneAmplitude(const std::filesystem::path& movie, int audioStream, double frequency,
                     double startSeconds, double durationSeconds) {
    const std::vector<float> samples =
        decodeMono(movie, audioStream, startSeconds, durationSeconds);
    // The median over 40 ms windows: a dropout spoils a few windows, not the answer.
    constexpr std::size_t window = 1920;
    std::vector<double> amplitudes;
    for (std::size_t first = 0; first + window <= samples.size(); first += window) {
        double real = 0;
        double imaginary = 0;
        for (std::size_t i = 0; i < window; ++i) {
            const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / 48000;
            real += samples[first + i] * std::cos(phase);
            imaginary += samples[first + i] * std::sin(phase);
        }
        amplitudes.push_back(2 * std::hypot(real, imaginary) / window);
    }
    if (amplitudes.empty()) {
        return 0;
    }
    std::nth_element(amplitudes.begin(),
                     amplitudes.begin() + static_cast<std::ptrdiff_t>(amplitudes.size() / 2),
                     amplitudes.end());
    return amplitudes[amplitudes.size() / 2];
}

} // namespace lumenvale::testing
