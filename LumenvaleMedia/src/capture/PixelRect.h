#pragma once

// Whole-pixel rectangles of the X desktop (origin top-left, y down). Internal.

#include "LumenvaleKit/Geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace lumenvale::x11 {

struct PixelRect {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    bool contains(std::int64_t px, std::int64_t py) const {
        return px >= x && py >= y && px < x + width && py < y + height;
    }
    friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

inline PixelRect intersection(const PixelRect& a, const PixelRect& b) {
    const std::int64_t left = std::max(a.x, b.x);
    const std::int64_t top = std::max(a.y, b.y);
    const std::int64_t right = std::min(a.x + a.width, b.x + b.width);
    const std::int64_t bottom = std::min(a.y + a.height, b.y + b.height);
    if (right <= left || bottom <= top) {
        return {};
    }
    return {left, top, right - left, bottom - top};
}

inline bool intersects(const PixelRect& a, const PixelRect& b) {
    return !intersection(a, b).empty();
}

// The smallest whole-pixel rectangle holding `rect` (edges rounded outward).
// Non-finite or absurd values give an empty rectangle.
inline PixelRect enclosingPixels(const Rect& rect) {
    constexpr double limit = 1 << 24;
    const double left = std::floor(rect.minX());
    const double top = std::floor(rect.minY());
    const double right = std::ceil(rect.maxX());
    const double bottom = std::ceil(rect.maxY());
    for (double value : {left, top, right, bottom}) {
        if (!std::isfinite(value) || std::abs(value) > limit) {
            return {};
        }
    }
    return {static_cast<std::int64_t>(left), static_cast<std::int64_t>(top),
            static_cast<std::int64_t>(right - left), static_cast<std::int64_t>(bottom - top)};
}

inline Rect toRect(const PixelRect& rect) {
    return {static_cast<double>(rect.x), static_cast<double>(rect.y),
            static_cast<double>(rect.width), static_cast<double>(rect.height)};
}

} // namespace lumenvale::x11
