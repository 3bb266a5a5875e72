#pragma once

#include <cstdint>

namespace lumenvale {

// Truncates a float toward zero to a signed 64-bit integer.
// A value that is not finite or lies outside the signed 64-bit range is a
// programming error: the process stops with a message naming `what`.
// Every float-to-integer conversion that the system calls fatal goes through here.
std::int64_t checkedTruncate(double value, const char* what);

// Adds one to a counter; overflow stops the process (session, generation and
// export counters are never allowed to wrap).
std::int64_t checkedIncrement(std::int64_t counter, const char* what);

} // namespace lumenvale
