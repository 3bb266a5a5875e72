#include "LumenvaleKit/RecordingName.h"

#include "LumenvaleKit/Checked.h"

#include <algorithm>
#include <cstdio>

namespace lumenvale::RecordingName {

std::string base(const LocalDateTime& when) {
    // The fixed pattern "yyyy-MM-dd 'at' HH.mm.ss" with ASCII digits: the name never
    // follows the user's language, only the wall-clock time.
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d at %02d.%02d.%02d", when.year, when.month,
                  when.day, when.hour, when.minute, when.second);
    return std::string("Lumenvale Recording ") + buffer;
}

std::filesystem::path unique(const std::filesystem::path& folder, const std::string& base,
                             const std::string& ext,
                             const std::function<bool(const std::filesystem::path&)>& exists) {
    std::filesystem::path candidate = folder / (base + "." + ext);
    std::int64_t number = 1;
    while (exists(candidate)) {
        number = checkedIncrement(number, "the recording name counter");
        candidate = folder / (base + " " + std::to_string(number) + "." + ext);
    }
    return candidate;
}

double posterTime(double durationSeconds) {
    return std::min(durationSeconds * 0.5, 0.5);
}

} // namespace lumenvale::RecordingName
