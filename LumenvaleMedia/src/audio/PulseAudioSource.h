#pragma once

#include "LumenvaleMedia/AudioSource.h"
#include "audio/PulseHandles.h"

#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {

// An AudioSource recorded from a PulseAudio server (also PipeWire's pulse server):
// the monitor of the default sink for AudioKind::system (stereo), a named or the
// default non-monitor source for AudioKind::microphone (mono); 48 kHz float32 in
// fragments of about 20 ms.
//
// Threads: start() and stop() from one controlling thread. The handlers run on the
// PulseAudio main loop's thread with the loop's lock held: they must be quick and
// must not call start() or stop(). The stream is not moved to another device by the
// server: when the device or the server goes away the stopped handler reports it.
class PulseAudioSource final : public AudioSource {
  public:
    static constexpr int rate = 48000;
    static constexpr double fragmentSeconds = 0.02;

    PulseAudioSource(AudioKind kind, std::optional<std::string> microphoneID);
    ~PulseAudioSource() override;
    PulseAudioSource(const PulseAudioSource&) = delete;
    PulseAudioSource& operator=(const PulseAudioSource&) = delete;

    AudioKind kind() const override { return kind_; }
    int sampleRate() const override { return rate; }
    int channels() const override { return kind_ == AudioKind::system ? 2 : 1; }
    void start(ChunkHandler onChunk, StoppedHandler onStopped) override;
    void stop() override;

    // The source actually recorded (e.g. "lumenvale_speakers.monitor"); empty before start().
    const std::string& deviceName() const { return deviceName_; }

  private:
    void connectContext();
    std::string resolveDevice();
    void connectStream(const std::string& device);
    void waitForOperation(pa_operation* operation);
    void reportStopped(const std::string& reason);
    std::string serverErrorText() const;

    static void onContextState(pa_context* context, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onRead(pa_stream* stream, std::size_t bytes, void* self);
    void readAvailable(pa_stream* stream);

    AudioKind kind_;
    std::optional<std::string> microphoneID_;
    std::string deviceName_;

    ChunkHandler onChunk_;
    StoppedHandler onStopped_;
    // Set once the stream is running; cleared by stop() so late state changes are not
    // reported as a loss.
    std::atomic<bool> running_{false};
    bool stoppedReported_ = false; // under the loop lock
    std::vector<float> silence_;   // for holes in the stream; grown only when a hole is larger

    // Declared in teardown order: the stream goes first, then the context, then the loop.
    pulse::ThreadedMainloop loop_;
    pulse::Context context_;
    pulse::Stream stream_;
};

} // namespace lumenvale
