#pragma once

#include <cstdint>

namespace lumenvale {

// A whole-pixel size: width then height, signed 64-bit integers.
struct PixelSize {
    std::int64_t width = 0;
    std::int64_t height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

} // namespace lumenvale
