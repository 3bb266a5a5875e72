#pragma once

// Which pixels of the monitor's picture a capture shows. Internal to LumenvaleMedia.

#include "LumenvaleMedia/Capture.h"
#include "capture/PixelRect.h"
#include "capture/portal/ScreenCastPortal.h"

namespace lumenvale::portal {

// The part of a monitor picture of `picture` pixels that `target` covers: all of it
// for a screen; for an area (desktop pixels), its part on the monitor at `grant`'s
// place, scaled when the picture has more pixels than the monitor's size in the
// layout (a scaled monitor). Empty when the area lies off the monitor.
x11::PixelRect visiblePart(const CaptureTarget& target, const ScreenCastGrant& grant,
                           PixelSize picture);

} // namespace lumenvale::portal
