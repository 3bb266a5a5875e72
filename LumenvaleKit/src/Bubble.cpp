#include "LumenvaleKit/Bubble.h"

#include <algorithm>
#include <cmath>

namespace lumenvale::Bubble {

double maxDiameter(const Rect& area) {
    const double smallerSide = std::min(std::abs(area.width), std::abs(area.height));
    return std::max(std::min(smallerSide * 0.4, maxLimit), minDiameter);
}

double clampDiameter(double diameter, const Rect& area) {
    return std::min(std::max(diameter, minDiameter), maxDiameter(area));
}

Rect frame(const std::optional<Rect>& last, double diameter, const Rect& area) {
    if (last && area.contains(*last)) {
        const double width = std::abs(last->width);
        if (std::min(std::max(width, minDiameter), maxDiameter(area)) == width) {
            return *last;
        }
    }
    const double side = clampDiameter(diameter, area);
    return {area.minX() + inset, area.minY() + inset, side, side};
}

Rect resized(const Rect& frame, double diameter, const Rect& area) {
    const double side = std::min(std::max(diameter, minDiameter), maxDiameter(area));
    const Rect centred{frame.midX() - side / 2, frame.midY() - side / 2, side, side};
    return keep(centred, area);
}

Rect keep(const Rect& frame, const Rect& area) {
    const double width = std::abs(frame.width);
    const double height = std::abs(frame.height);
    // The upper bound is applied last, so a frame larger than the area sticks out at
    // the left or bottom.
    const double x = std::min(std::max(frame.minX(), area.minX()), area.maxX() - width);
    const double y = std::min(std::max(frame.minY(), area.minY()), area.maxY() - height);
    return {x, y, width, height};
}

} // namespace lumenvale::Bubble
