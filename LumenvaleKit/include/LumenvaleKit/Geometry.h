#pragma once

#include <algorithm>

namespace lumenvale {

// A width and height in points (64-bit floats).
struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

// A rectangle in points: origin (x, y), width and height, all 64-bit floats.
// The coordinate system is the caller's; see ScreenGeometry for the two in use.
// A rectangle with a negative width or height reads through its standardised
// form in minX/maxX/minY/maxY.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return std::min(x, x + width); }
    double maxX() const { return std::max(x, x + width); }
    double minY() const { return std::min(y, y + height); }
    double maxY() const { return std::max(y, y + height); }
    double midX() const { return (minX() + maxX()) * 0.5; }
    double midY() const { return (minY() + maxY()) * 0.5; }
    Size size() const { return {width, height}; }

    // True when `inner` lies wholly inside this rectangle (edges included).
    bool contains(const Rect& inner) const {
        return inner.minX() >= minX() && inner.maxX() <= maxX() && inner.minY() >= minY() &&
               inner.maxY() <= maxY();
    }

    friend bool operator==(const Rect&, const Rect&) = default;
};

} // namespace lumenvale
