#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/PixelSize.h"

namespace lumenvale::OutputSize {

// The pixel size of the movie for a captured area of `points` on a display
// whose scale (device pixel ratio) is `scale`: never scaled up, within the
// codec's long-side and pixel-count limits, each side even and at least 2.
// A degenerate area (zero, negative or not a number) gives 2 x 2.
PixelSize pixels(Size points, double scale, Codec codec);

} // namespace lumenvale::OutputSize
