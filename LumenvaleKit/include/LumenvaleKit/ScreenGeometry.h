#pragma once

#include "LumenvaleKit/Geometry.h"

namespace lumenvale::ScreenGeometry {

// Two coordinate systems meet in the application:
// - desktop space: origin at the bottom-left of the main display, y up
//   (screens and areas the user picks);
// - window-list space: origin at the top-left, y down (window bounds, and the
//   capture's source rectangle relative to one display's top-left corner).

// An area in desktop space made relative to the top-left corner of the screen that
// holds it, y down: the source rectangle handed to the capture. An area with a
// negative width or height is read, and returned, in its standardised form.
Rect sourceRect(const Rect& area, const Rect& screen);

// A rectangle in window-list space moved into desktop space, given the main
// display's height in points.
Rect appKitRect(const Rect& quartz, double mainHeight);

} // namespace lumenvale::ScreenGeometry
