// Reads arbitrary bytes as two version numbers (split at the first newline), as the
// update feed hands them over; whatever reads must order consistently: a version
// equals itself, and comparing the two either way gives opposite answers.
#include "LumenvaleKit/SoftwareVersion.h"

#include <compare>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t newline = input.find('\n');
    const std::string_view firstText = input.substr(0, newline);
    const std::string_view secondText =
        newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);
    const auto first = lumenvale::SoftwareVersion::parse(firstText);
    const auto second = lumenvale::SoftwareVersion::parse(secondText);
    for (const auto* version : {&first, &second}) {
        if (!version->ok() ? version->error().empty() : !(version->value() == version->value())) {
            std::abort();
        }
    }
    if (first.ok() && second.ok()) {
        const auto forward = first.value() <=> second.value();
        const auto backward = second.value() <=> first.value();
        if ((forward < 0) != (backward > 0) || (forward == 0) != (backward == 0)) {
            std::abort();
        }
    }
    return 0;
}
