#pragma once

#include "LumenvaleKit/EditDecision.h"
#include "LumenvaleKit/Geometry.h"

#include <vector>

namespace lumenvale::EditorGeometry {

// The timeline's scale: the whole output always fits the width, in points per second.
// An empty or zero-length edit counts as 1 ms long, so the layout never divides by 0.
double timelineScale(double widthPoints, double outputDurationSeconds);

// The ruler's step between ticks: the first of 1, 2, 5, 10, 15, 30, 60, 120, 300, 600 s
// that is at least 64 points wide at `pointsPerSecond`, else 1200 s.
double rulerStepSeconds(double pointsPerSecond);

// The playhead bar's left edge (it is 2 points wide): centred on the time, never
// leaving the timeline.
double playheadX(double timeSeconds, double pointsPerSecond, double widthPoints);

// The source times a clip's filmstrip shows at `widthPoints`: one picture per 72
// points (at least one), each the middle of its equal slice of the clip.
std::vector<double> filmstripTimes(const Clip& clip, double widthPoints);

// The output time under point x of a clip drawn `widthPoints` wide.
double clipOutputTime(const EditDecision& edit, std::size_t clipIndex, double xPoints,
                      double widthPoints);

// The corners of the crop box; each resizes the two sides that meet there.
enum class CropCorner { topLeft, topRight, bottomLeft, bottomRight };

// The smallest side of a crop, in fractions of the picture.
inline constexpr double minimumCropSide = 0.05;

// `crop` (fractions of the picture) with the sides at `corner` moved by (dx, dy); the
// opposite sides stay. A moved side stops at the picture's edge and 0.05 short of its
// opposite side.
Rect resizeCrop(const Rect& crop, CropCorner corner, double dx, double dy);

// Sizes kept within 0.05 ... 1, then the origin moved so the crop lies in the picture:
// a box pushed against an edge slides along it instead of shrinking.
Rect clampCrop(const Rect& crop);

} // namespace lumenvale::EditorGeometry
