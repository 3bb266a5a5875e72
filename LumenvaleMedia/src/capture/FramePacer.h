#pragma once

// When each frame is due: frame n at start + n / fps on the steady clock, computed
// from n every time, so the schedule never drifts. Internal to LumenvaleMedia.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace lumenvale::x11 {

class FramePacer {
  public:
    using Clock = std::chrono::steady_clock;

    // `fps` must be at least 1.
    FramePacer(int fps, Clock::time_point start) : fps_(fps), start_(start) {}

    Clock::time_point start() const { return start_; }
    Clock::time_point due(std::int64_t index) const;

    // The frame to make after `index`, at `now`: the next one, or, when the capture
    // has fallen a whole frame or more behind, the latest one already due. The
    // numbers in between are dropped.
    std::int64_t next(std::int64_t index, Clock::time_point now) const;

  private:
    std::int64_t fps_;
    Clock::time_point start_;
};

// A capture thread's loop: frame after frame on a FramePacer started when run() is
// called, each made when it is due, until stop() (from any thread, which wakes a
// waiting run() at once) or until a frame says the capture ends.
class PacedLoop {
  public:
    // Makes a frame: its number and due time; false ends the loop.
    using MakeFrame = std::function<bool(std::int64_t index, FramePacer::Clock::time_point due)>;

    // Runs on the calling thread until stopped or ended; the frames skipped because
    // the capture fell behind are added to `dropped`.
    void run(int fps, std::atomic<std::int64_t>& dropped, const MakeFrame& makeFrame);
    void stop();

  private:
    std::mutex mutex_;
    std::condition_variable wake_;
    bool quit_ = false;
};

} // namespace lumenvale::x11
