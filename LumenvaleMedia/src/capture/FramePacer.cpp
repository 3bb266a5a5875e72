#include "capture/FramePacer.h"

#include <algorithm>

namespace lumenvale::x11 {

namespace {
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
}

FramePacer::Clock::time_point FramePacer::due(std::int64_t index) const {
    return start_ + std::chrono::duration_cast<Clock::duration>(
                        std::chrono::nanoseconds(index * nanosecondsPerSecond / fps_));
}

std::int64_t FramePacer::next(std::int64_t index, Clock::time_point now) const {
    const std::int64_t elapsed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now - start_).count();
    // The frame whose slot (from its due time to the next one's) holds `now`.
    const std::int64_t current = elapsed < 0 ? 0 : elapsed * fps_ / nanosecondsPerSecond;
    return std::max(index + 1, current);
}

void PacedLoop::run(int fps, std::atomic<std::int64_t>& dropped, const MakeFrame& makeFrame) {
    const FramePacer pacer(fps, FramePacer::Clock::now());
    std::int64_t index = 0;
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            if (wake_.wait_until(lock, pacer.due(index), [this] { return quit_; })) {
                return;
            }
        }
        if (!makeFrame(index, pacer.due(index))) {
            return;
        }
        const std::int64_t next = pacer.next(index, FramePacer::Clock::now());
        dropped += next - index - 1;
        index = next;
    }
}

void PacedLoop::stop() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

} // namespace lumenvale::x11
