#include "gui/panels/PanelPlacement.h"

#include <algorithm>

namespace lumenvale::PanelPlacement {

namespace {

// Touching edges do not overlap.
bool overlaps(const Rect& a, const Rect& b) {
    return std::min(a.maxX(), b.maxX()) > std::max(a.minX(), b.minX()) &&
           std::min(a.maxY(), b.maxY()) > std::max(a.minY(), b.minY());
}

bool onOneDisplay(const Rect& rect, const std::vector<Screen>& screens) {
    return std::any_of(screens.begin(), screens.end(),
                       [&](const Screen& screen) { return screen.frame.contains(rect); });
}

} // namespace

std::optional<Rect> clearOf(const Rect& wanted, const Rect& recorded,
                            const std::vector<Screen>& screens, double gapPoints) {
    if (!overlaps(wanted, recorded)) {
        return wanted;
    }
    const Rect above{wanted.x, recorded.maxY() + gapPoints, wanted.width, wanted.height};
    const Rect below{wanted.x, recorded.minY() - gapPoints - wanted.height, wanted.width,
                     wanted.height};
    for (const Rect& candidate : {above, below}) {
        if (onOneDisplay(candidate, screens) && !overlaps(candidate, recorded)) {
            return candidate;
        }
    }
    for (const Screen& screen : screens) {
        const Rect& visible = screen.visibleFrame;
        const Rect top{visible.midX() - wanted.width / 2,
                       visible.maxY() - wanted.height - gapPoints, wanted.width, wanted.height};
        if (!overlaps(screen.frame, recorded) && screen.frame.contains(top)) {
            return top;
        }
    }
    return std::nullopt;
}

std::optional<Rect> placed(const Rect& wanted, const std::optional<Rect>& recorded) {
    return recorded ? clearOf(wanted, *recorded, Screens::all(), 8) : wanted;
}

} // namespace lumenvale::PanelPlacement
