#include "capture/portal/VisiblePart.h"

namespace lumenvale::portal {

x11::PixelRect visiblePart(const CaptureTarget& target, const ScreenCastGrant& grant,
                           PixelSize picture) {
    const x11::PixelRect whole{0, 0, picture.width, picture.height};
    const auto* area = std::get_if<CaptureArea>(&target);
    if (!area) {
        return whole;
    }
    const double factor = grant.width && *grant.width > 0 ? static_cast<double>(picture.width) /
                                                                static_cast<double>(*grant.width)
                                                          : 1.0;
    const Rect& rect = area->rect;
    const x11::PixelRect part =
        x11::enclosingPixels(Rect{(rect.x - static_cast<double>(grant.x.value_or(0))) * factor,
                                  (rect.y - static_cast<double>(grant.y.value_or(0))) * factor,
                                  rect.width * factor, rect.height * factor});
    return x11::intersection(part, whole);
}

} // namespace lumenvale::portal
