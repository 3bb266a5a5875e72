#include "LumenvaleKit/Checked.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace lumenvale {

namespace {

[[noreturn]] void stop(const char* what, const char* reason) {
    std::fprintf(stderr, "Lumenvale: fatal: %s %s\n", what != nullptr ? what : "value", reason);
    std::fflush(stderr);
    std::abort();
}

} // namespace

std::int64_t checkedTruncate(double value, const char* what) {
    if (!std::isfinite(value)) {
        stop(what, "is not a finite number");
    }
    // -2^63 is exactly representable and in range; 2^63 (which is what
    // 9223372036854775807 becomes as a double) is not.
    constexpr double lowest = -9223372036854775808.0;
    constexpr double beyondHighest = 9223372036854775808.0;
    const double truncated = std::trunc(value);
    if (truncated < lowest || truncated >= beyondHighest) {
        stop(what, "lies outside the signed 64-bit range");
    }
    return static_cast<std::int64_t>(truncated);
}

std::int64_t checkedIncrement(std::int64_t counter, const char* what) {
    if (counter == std::numeric_limits<std::int64_t>::max()) {
        stop(what, "overflowed");
    }
    return counter + 1;
}

} // namespace lumenvale
