#pragma once

// When each frame is due: frame n at start + n / fps on the steady clock, computed
// from n every time, so the schedule never drifts. Internal to LumenvaleMedia.

#include <chrono>
#include <cstdint>

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

} // namespace lumenvale::x11
