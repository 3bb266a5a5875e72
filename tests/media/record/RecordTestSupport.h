#pragma once

// Test-only helpers for the recording tests: a paced video source that paints its
// frame number, tones played into the test session's PulseAudio sinks, and readers
// of what a written part holds.

#include "LumenvaleMedia/AudioSource.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "LumenvaleMedia/VideoSource.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumenvale::testing {

// When this variable names a folder, the test program records into it until it is
// killed instead of running tests (the child of the crash test).
inline constexpr const char* recordUntilKilledVariable = "LUMENVALE_TEST_RECORD_UNTIL_KILLED";

// Delivers frame n at start + n / fps, painted with n as 16 bits: the top quarter
// of the picture is 16 columns, white for a 1 bit, black for 0, most significant
// first. The rest is a colour that changes with n.
class CounterVideoSource final : public VideoSource {
  public:
    CounterVideoSource(PixelSize size, int fps);
    ~CounterVideoSource() override;

    // The source ends by itself after delivering `frames` frames, reporting `reason`.
    void endAfter(std::int64_t frames, std::string reason);
    // Steady-clock time at which frame `index` was delivered.
    std::chrono::steady_clock::duration frameTime(std::int64_t index) const;

    PixelSize size() const override { return size_; }
    int fps() const override { return fps_; }
    void start(FrameHandler onFrame, StoppedHandler onStopped) override;
    void stop() override;
    CaptureStats stats() const override;

  private:
    void run();
    void paint(std::int64_t index);

    PixelSize size_;
    int fps_;
    std::vector<std::uint8_t> pixels_;
    FrameHandler onFrame_;
    StoppedHandler onStopped_;
    std::int64_t endAfter_ = -1;
    std::string endReason_;
    std::atomic<bool> quit_{false};
    std::atomic<std::int64_t> delivered_{0};
    mutable std::mutex timesMutex_;
    std::vector<std::chrono::steady_clock::duration> times_;
    std::thread thread_;
};

// A microphone with an exact clock: 10 ms chunks of mono silence at 48 kHz, stamped at
// start + n x 10 ms, with a 1 kHz beep (amplitude 0.5, starting at phase 0) of 60 ms
// wherever beepAt() put one. Delivered in real time.
class BeepAudioSource final : public AudioSource {
  public:
    ~BeepAudioSource() override;
    // Beeps starting at these steady-clock times (before start() or while running).
    void beepAt(std::chrono::steady_clock::duration time);

    AudioKind kind() const override { return AudioKind::microphone; }
    int sampleRate() const override { return 48000; }
    int channels() const override { return 1; }
    void start(ChunkHandler onChunk, StoppedHandler onStopped) override;
    void stop() override;

  private:
    void run();
    ChunkHandler onChunk_;
    std::mutex mutex_;
    std::vector<std::chrono::steady_clock::duration> beeps_;
    std::atomic<bool> quit_{false};
    std::thread thread_;
};

// What the recording tests record: a CounterVideoSource of 320 x 240 at 30 frames a
// second, with the test session's system audio and microphone where asked.
RecordingSources counterSources(bool systemAudio = false, bool microphone = false);
inline CounterVideoSource& counterVideo(RecordingSources& sources) {
    return static_cast<CounterVideoSource&>(*sources.video);
}

// What a recording pipeline's handlers reported: the parts it finished and the reasons
// it stopped by itself, in order.
struct PipelineReports {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::filesystem::path> finished;
    std::vector<std::string> stopped;

    RecordingPipeline::Handlers handlers();
    // True once at least `count` parts were finished, waiting at most 5 s.
    bool waitForParts(std::size_t count);
    // True once the pipeline stopped by itself, waiting at most 5 s.
    bool waitForStop();
};

// The frame numbers painted into the frames of a movie's video, in order.
std::vector<std::int64_t> frameCounters(const std::filesystem::path& movie);

// Plays a sine tone into a PulseAudio sink (pacat) on a thread of its own until the
// tone ends; the destructor waits for it.
class Tone {
  public:
    Tone(const std::string& sink, double frequency, double seconds, int channels = 2,
         double amplitude = 0.5);
    ~Tone();
    Tone(const Tone&) = delete;
    Tone& operator=(const Tone&) = delete;

  private:
    std::filesystem::path file_;
    std::thread player_;
};

// Decoded sound of one audio stream of a movie, mixed down to mono, 48 kHz, from the
// movie's time 0 (edit lists applied).
std::vector<float> decodeMono(const std::filesystem::path& movie, int audioStream,
                              double startSeconds = 0, double durationSeconds = 1e6);

// The amplitude of the sine at `frequency` in one audio stream of a movie over
// [startSeconds, startSeconds + durationSeconds): the median over 40 ms windows of
// one Fourier bin, so other tones and the odd dropout hardly change it.
double toneAmplitude(const std::filesystem::path& movie, int audioStream, double frequency,
                     double startSeconds, double durationSeconds);

} // namespace lumenvale::testing
