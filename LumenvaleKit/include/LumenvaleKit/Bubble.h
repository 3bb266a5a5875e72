#pragma once

#include "LumenvaleKit/Geometry.h"

#include <optional>

namespace lumenvale::Bubble {

// Geometry of the round camera bubble, in points, desktop coordinates (y up).

inline constexpr double small = 140;
inline constexpr double medium = 200;
inline constexpr double large = 300;
inline constexpr double minDiameter = 96; // lower end of the absolute range
inline constexpr double maxLimit = 480;   // upper end of the absolute range
inline constexpr double inset = 32;       // a new bubble's distance from the area's edges

// 0.4 x the area's smaller side, at most 480, then at least 96.
double maxDiameter(const Rect& area);
// min(max(d, 96), maxDiameter(area)).
double clampDiameter(double diameter, const Rect& area);
// The remembered frame when it lies inside the area at an allowed size; else a new
// square at the area's bottom-left corner, `inset` points in.
Rect frame(const std::optional<Rect>& last, double diameter, const Rect& area);
// A square of the clamped diameter centred on the old frame, kept inside the area.
Rect resized(const Rect& frame, double diameter, const Rect& area);
// The frame moved inside the area, size unchanged; a frame larger than the area
// sticks out at the left or bottom.
Rect keep(const Rect& frame, const Rect& area);

} // namespace lumenvale::Bubble
