#pragma once

#include "LumenvaleMedia/AudioSource.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <vector>

namespace lumenvale::record {

// Audio positions count 48 kHz samples on the steady clock: position p is the
// moment p / 48000 seconds after the steady clock's epoch. Video frame times map to
// the same scale, which is what keeps sound and picture together.
inline constexpr int audioRate = 48000;
inline constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max();

std::int64_t audioPosition(std::chrono::steady_clock::duration time);

// The sound of one source laid out on the steady clock: the last few seconds of its
// samples, each at its position. A source's samples follow on from each other; its
// chunks' time stamps only steer where. They jitter by milliseconds and now and then
// one is tens of milliseconds off (a server re-estimating its latency), so a chunk
// is placed right after the previous one, and the time stamps' deviation from that
// is averaged: when the average moves more than `driftLimit` away (a sound card
// clock drifting against the steady clock), the stream is shifted by it, leaving
// silence or dropping samples once. A chunk more than `jumpLimit` away (sound the
// server lost, a suspended device) is placed at its own time at once.
//
// Threads: append() and markEnded() from the source's thread, the rest from the
// writer; all members lock internally.
class AudioTimeline {
  public:
    static constexpr std::int64_t driftLimit = audioRate * 10 / 1000;
    static constexpr std::int64_t jumpLimit = audioRate * 60 / 1000;

    AudioTimeline(int channels, double capacitySeconds);

    int channels() const { return channels_; }

    // Places a chunk; chunks of another rate or channel count are ignored.
    void append(const AudioChunk& chunk);
    // The source is gone: from now on every position reads as available silence.
    void markEnded();

    // The position up to which sound has arrived (silence is assumed beyond); after
    // markEnded(), endOfTime.
    std::int64_t availableUntil() const;

    // Copies `frames` frames from `position` on into `out` (interleaved, channels()
    // per frame). Positions with no sound (before the kept window, in gaps, not yet
    // arrived) read as silence.
    void read(std::int64_t position, std::int64_t frames, float* out) const;

  private:
    void writeSamples(std::int64_t position, const float* samples, std::int64_t frames);
    void writeSilence(std::int64_t position, std::int64_t frames);

    const int channels_;
    const std::int64_t capacityFrames_;
    mutable std::mutex mutex_;
    std::vector<float> ring_; // frame at position p is at (p mod capacity) * channels
    std::int64_t begin_ = 0;  // kept window: positions [begin_, end_)
    std::int64_t end_ = 0;
    double drift_ = 0;      // average deviation of the time stamps from end_, samples
    std::int64_t skip_ = 0; // samples still to drop after an early-running correction
    bool started_ = false;
    bool ended_ = false;
};

} // namespace lumenvale::record
