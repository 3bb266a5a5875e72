#pragma once

#include <string>

namespace lumenvale::Clock {

// A duration as "mm:ss", or "h:mm:ss" from one hour on. Seconds are truncated,
// negative values count as 0; a non-finite or out-of-range value is fatal.
std::string text(double seconds);

} // namespace lumenvale::Clock
