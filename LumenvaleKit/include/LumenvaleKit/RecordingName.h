#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace lumenvale {

// A wall-clock moment in the user's local time zone, already broken down by the
// caller (the core reads no clocks or time zones).
struct LocalDateTime {
    int year = 1970;
    int month = 1; // 1 ... 12
    int day = 1;   // 1 ... 31
    int hour = 0;  // 0 ... 23
    int minute = 0;
    int second = 0;
};

namespace RecordingName {

// "Lumenvale Recording yyyy-MM-dd 'at' HH.mm.ss", POSIX digits, 24-hour clock.
std::string base(const LocalDateTime& when);

// The first free name in `folder`: base.ext, then "base 2.ext", "base 3.ext", ...
// `exists` is called once per candidate, in that order, and is the only thing that
// touches the file system.
std::filesystem::path unique(const std::filesystem::path& folder, const std::string& base,
                             const std::string& ext,
                             const std::function<bool(const std::filesystem::path&)>& exists);

// The poster frame's time: min(duration * 0.5, 0.5) seconds.
double posterTime(double durationSeconds);

} // namespace RecordingName
} // namespace lumenvale
