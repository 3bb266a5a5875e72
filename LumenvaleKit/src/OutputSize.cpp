#include "LumenvaleKit/OutputSize.h"

#include "LumenvaleKit/Checked.h"

#include <algorithm>
#include <cmath>

namespace lumenvale::OutputSize {

namespace {

// Steps 6 and 7 of the size rule: nudge, truncate, then at least 2 and even.
std::int64_t evenSide(double scaledSide, const char* what) {
    const std::int64_t whole = checkedTruncate(scaledSide + 0.000001, what);
    if (whole < 2) {
        return 2;
    }
    return whole - whole % 2;
}

} // namespace

PixelSize pixels(Size points, double scale, Codec codec) {
    const double width = points.width * scale;
    if (!(width > 0)) {
        return {2, 2};
    }
    const double height = points.height * scale;
    if (!(height > 0)) {
        return {2, 2};
    }
    const double longSide = width <= height ? height : width;
    const double longFactor = maxLongSide(codec) / longSide;
    const double areaFactor = std::sqrt(maxPixels(codec) / (width * height));
    const double factor =
        longFactor < 1 ? std::min(areaFactor, longFactor) : std::min(areaFactor, 1.0);
    return {evenSide(width * factor, "the movie width"),
            evenSide(height * factor, "the movie height")};
}

} // namespace lumenvale::OutputSize
