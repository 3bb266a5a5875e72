#include "LumenvaleKit/Clock.h"

#include <gtest/gtest.h>
#include <limits>

namespace lumenvale {
namespace {

TEST(Clock, FormatsTruncatedSeconds) {
    const struct {
        double seconds;
        const char* text;
    } cases[] = {
        {0, "00:00"},        {59.99, "00:59"},      {75.9, "01:15"},   {3599, "59:59"},
        {3599.999, "59:59"}, {3600, "1:00:00"},     {3725, "1:02:05"}, {36000, "10:00:00"},
        {86399, "23:59:59"}, {360000, "100:00:00"}, {-5, "00:00"},     {-0.5, "00:00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Clock::text(c.seconds), c.text) << c.seconds;
    }
}

TEST(ClockDeathTest, NonFiniteOrHugeStops) {
    EXPECT_DEATH(Clock::text(std::numeric_limits<double>::quiet_NaN()), "clock");
    EXPECT_DEATH(Clock::text(std::numeric_limits<double>::infinity()), "clock");
    EXPECT_DEATH(Clock::text(9.2233720368547758e18), "clock");
}

} // namespace
} // namespace lumenvale
