#include "LumenvaleKit/Checked.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace lumenvale {
namespace {

TEST(Checked, TruncatesTowardZeroUpToTheRangeEdges) {
    EXPECT_EQ(checkedTruncate(1.999, "v"), 1);
    EXPECT_EQ(checkedTruncate(-1.999, "v"), -1);
    EXPECT_EQ(checkedTruncate(-9223372036854775808.0, "v"),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(checkedTruncate(std::nextafter(9223372036854775808.0, 0.0), "v"),
              9223372036854774784); // the largest double below 2^63
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
