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

} // namespace lumenvale::x11
