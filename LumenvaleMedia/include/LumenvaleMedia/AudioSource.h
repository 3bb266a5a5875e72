#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace lumenvale {

// Which sound an audio source records. System audio and the microphone each
// become their own track (see docs/recording-format.md for the track layout).
enum class AudioKind { system, microphone };

// A block of interleaved 32-bit float samples at the source's rate and channel count.
struct AudioChunk {
    std::span<const float> samples;
    int channels = 0;
    int sampleRate = 0;
    // Steady-clock time of the chunk's first sample.
    std::chrono::steady_clock::duration time{};
};

// A live source of sound (a PulseAudio sink monitor or source).
//
// Threads: start() and stop() are called from one controlling thread; handlers run
// on the source's own thread. The stopped handler runs at most once, when the
// source ends by itself; its argument is the user-facing reason.
class AudioSource {
  public:
    using ChunkHandler = std::function<void(const AudioChunk&)>;
    using StoppedHandler = std::function<void(const std::string& reason)>;

    virtual ~AudioSource() = default;
    virtual AudioKind kind() const = 0;
    virtual int sampleRate() const = 0;
    virtual int channels() const = 0;
    // Throws MediaError when the device cannot be opened.
    virtual void start(ChunkHandler onChunk, StoppedHandler onStopped) = 0;
    // No handler runs after it returns. Idempotent.
    virtual void stop() = 0;
};

} // namespace lumenvale
