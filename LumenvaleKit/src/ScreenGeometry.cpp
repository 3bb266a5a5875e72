#include "LumenvaleKit/ScreenGeometry.h"

#include <cmath>

namespace lumenvale::ScreenGeometry {

Rect sourceRect(const Rect& area, const Rect& screen) {
    // A dragged area may have a negative size; it is handed on standardised.
    return {area.minX() - screen.minX(), screen.maxY() - area.maxY(), std::abs(area.width),
            std::abs(area.height)};
}

Rect appKitRect(const Rect& quartz, double mainHeight) {
    return {quartz.x, mainHeight - quartz.maxY(), quartz.width, quartz.height};
}

} // namespace lumenvale::ScreenGeometry
