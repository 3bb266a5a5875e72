#pragma once

#include "desktop/Screens.h"

#include <optional>
#include <vector>

// Where a panel may show while a capture that cannot leave Lumenvale's windows out (the
// desktop portal on Wayland) records `recorded`, a display or an area: never over it.
// Rectangles are in desktop coordinates (points, origin bottom-left, y up).
namespace lumenvale::PanelPlacement {

// `wanted` itself when it lies clear of `recorded`; else a rectangle of its size just
// above, then just below `recorded` (`gapPoints` apart), wholly on one display; else at
// the top middle of the first display that lies clear of `recorded`; nothing when no
// display has room: then the panel stays hidden while recording.
std::optional<Rect> clearOf(const Rect& wanted, const Rect& recorded,
                            const std::vector<Screen>& screens, double gapPoints);

// Where a panel that wants `wanted` shows: there, when nothing is to be kept clear;
// else clearOf() `recorded` among today's displays, 8 points apart.
std::optional<Rect> placed(const Rect& wanted, const std::optional<Rect>& recorded);

} // namespace lumenvale::PanelPlacement
