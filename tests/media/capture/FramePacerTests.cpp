// The frame schedule: frame n due at start + n / fps, computed from n so it never
// drifts, and late frames skipped rather than bunched.

#include "capture/FramePacer.h"

#include <gtest/gtest.h>

namespace lumenvale::x11 {
namespace {

using namespace std::chrono;
using Clock = FramePacer::Clock;

const Clock::time_point start = Clock::time_point(seconds(1000));

TEST(FramePacer, DueTimesComeFromTheFrameNumberWithoutDrift) {
    struct Case {
        int fps;
        std::int64_t index;
        nanoseconds offset;
    } cases[] = {
        {30, 0, 0ns},          {30, 1, 33'333'333ns}, {30, 3, 100'000'000ns}, {30, 30, 1s},
        {30, 108'000, 3600s}, // an hour in: exact, no accumulated rounding
        {60, 1, 16'666'666ns}, {60, 216'000, 3600s},  {24, 7, 291'666'666ns}, {1, 5, 5s},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FramePacer(c.fps, start).due(c.index) - start, c.offset)
            << c.fps << " fps, frame " << c.index;
    }
}

TEST(FramePacer, NextFrameSkipsOnlyWhenAWholeIntervalBehind) {
    const FramePacer pacer(30, start);
    struct Case {
        std::int64_t delivered;
        nanoseconds now; // since start
        std::int64_t next;
    } cases[] = {
        {0, 1ms, 1},          // early: the next one, waited for
        {0, 40ms, 1},         // frame 1 is late but its slot is current: made at once
        {0, 66'666'667ns, 2}, // frame 1's slot has passed: dropped, frame 2 made
        {0, 150ms, 4},        // frames 1 to 3 dropped
        {10, 200ms, 11},      // ahead of schedule (frame 10 delivered before 333 ms)
        {29, 1s, 30},         {29, 1'100ms, 33},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(pacer.next(c.delivered, start + c.now), c.next)
            << "after frame " << c.delivered << " at " << c.now.count() << " ns";
    }
}

} // namespace
} // namespace lumenvale::x11
