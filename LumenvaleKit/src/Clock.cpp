#include "LumenvaleKit/Clock.h"

#include "LumenvaleKit/Checked.h"

#include <cstdio>

namespace lumenvale::Clock {

std::string text(double seconds) {
    std::int64_t whole = checkedTruncate(seconds, "the clock's seconds");
    if (whole < 0) {
        whole = 0;
    }
    const long long hours = whole / 3600;
    const long long minutesOfHour = (whole % 3600) / 60;
    const long long secondsOfMinute = whole % 60;
    char buffer[48];
    if (whole >= 3600) {
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld:%02lld", hours, minutesOfHour,
                      secondsOfMinute);
    } else {
        std::snprintf(buffer, sizeof buffer, "%02lld:%02lld", static_cast<long long>(whole / 60),
                      secondsOfMinute);
    }
    return buffer;
}

} // namespace lumenvale::Clock
