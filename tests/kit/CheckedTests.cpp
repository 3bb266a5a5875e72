#include "LumenvaleKit/Checked.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace lumenvale {
namespace {

TEST(Checked, TruncatesTowardZeroUpToTheRangeEdges) {
    const struct {
        double value;
        std::int64_t expected;
    } cases[] = {
        {0.0, 0},
        {-0.0, 0},
        {1.999, 1},
        {-1.999, -1},
        {-9223372036854775808.0, std::numeric_limits<std::int64_t>::min()},
        // The largest double below 2^63.
        {std::nextafter(9223372036854775808.0, 0.0), 9223372036854774784},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(checkedTruncate(c.value, "value"), c.expected) << c.value;
    }
    EXPECT_EQ(checkedIncrement(41, "counter"), 42);
}

TEST(CheckedDeathTest, StopsOnValuesThatDoNotFit) {
    EXPECT_DEATH(checkedTruncate(std::numeric_limits<double>::quiet_NaN(), "the width"),
                 "the width");
    EXPECT_DEATH(checkedTruncate(-std::numeric_limits<double>::infinity(), "x"), "finite");
    // 9223372036854775807 as a double is 2^63, one past the largest value.
    EXPECT_DEATH(checkedTruncate(9.2233720368547758e18, "x"), "range");
    EXPECT_DEATH(checkedTruncate(std::nextafter(-9223372036854775808.0, -1e300), "x"), "range");
    EXPECT_DEATH(checkedIncrement(std::numeric_limits<std::int64_t>::max(), "the session"),
                 "the session");
}

} // namespace
} // namespace lumenvale
