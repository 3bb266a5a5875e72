#include "LumenvaleKit/ScreenGeometry.h"

namespace lumenvale::ScreenGeometry {

Rect sourceRect(const Rect& area, const Rect& screen) {
    return {area.minX() - screen.minX(), screen.maxY() - area.maxY(), area.width, area.height};
}

Rect appKitRect(const Rect& quartz, double mainHeight) {
    return {quartz.x, mainHeight - quartz.maxY(), quartz.width, quartz.height};
}

} // namespace lumenvale::ScreenGeometry
