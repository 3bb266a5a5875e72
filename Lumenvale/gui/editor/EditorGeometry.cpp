#include "gui/editor/EditorGeometry.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace lumenvale::EditorGeometry {
namespace {

constexpr double shortestTimelineSeconds = 0.001;
constexpr double rulerTickMinimumPoints = 64;
constexpr double filmstripPicturePoints = 72;
constexpr double playheadWidthPoints = 2;

} // namespace

double timelineScale(double widthPoints, double outputDurationSeconds) {
    return widthPoints / std::max(outputDurationSeconds, shortestTimelineSeconds);
}

double rulerStepSeconds(double pointsPerSecond) {
    static constexpr std::array<double, 10> steps{1, 2, 5, 10, 15, 30, 60, 120, 300, 600};
    for (const double step : steps) {
        if (step * pointsPerSecond >= rulerTickMinimumPoints) {
            return step;
        }
    }
    return 1200;
}

double playheadX(double timeSeconds, double pointsPerSecond, double widthPoints) {
    const double x = pointsPerSecond * timeSeconds - playheadWidthPoints / 2;
    return std::clamp(x, 0.0, std::max(0.0, widthPoints - playheadWidthPoints));
}

std::vector<double> filmstripTimes(const Clip& clip, double widthPoints) {
    const double fitting = std::floor(std::max(widthPoints, 0.0) / filmstripPicturePoints);
    const int count = std::max(1, static_cast<int>(std::min(fitting, 10000.0)));
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        times.push_back(clip.start + (index + 0.5) / count * clip.duration());
    }
    return times;
}

double clipOutputTime(const EditDecision& edit, std::size_t clipIndex, double xPoints,
                      double widthPoints) {
    if (clipIndex >= edit.clips.size()) {
        return 0;
    }
    return edit.clipStarts()[clipIndex] +
           xPoints / std::max(widthPoints, 1.0) * edit.clips[clipIndex].duration() / edit.speed;
}

Rect resizeCrop(const Rect& crop, CropCorner corner, double dx, double dy) {
    double left = crop.minX();
    double top = crop.minY();
    double right = crop.maxX();
    double bottom = crop.maxY();
    const bool movesLeft = corner == CropCorner::topLeft || corner == CropCorner::bottomLeft;
    const bool movesTop = corner == CropCorner::topLeft || corner == CropCorner::topRight;
    if (movesLeft) {
        left = std::clamp(left + dx, 0.0, std::max(0.0, right - minimumCropSide));
    } else {
        right = std::clamp(right + dx, std::min(1.0, left + minimumCropSide), 1.0);
    }
    if (movesTop) {
        top = std::clamp(top + dy, 0.0, std::max(0.0, bottom - minimumCropSide));
    } else {
        bottom = std::clamp(bottom + dy, std::min(1.0, top + minimumCropSide), 1.0);
    }
    Rect resized{left, top, right - left, bottom - top};
    if (resized.width <= minimumCropSide) {
        resized.width = minimumCropSide;
    }
    if (resized.height <= minimumCropSide) {
        resized.height = minimumCropSide;
    }
    resized.x = std::min(resized.x, 1 - minimumCropSide);
    resized.y = std::min(resized.y, 1 - minimumCropSide);
    return resized;
}

Rect clampCrop(const Rect& crop) {
    Rect clamped = crop;
    clamped.width = std::clamp(crop.width, minimumCropSide, 1.0);
    clamped.height = std::clamp(crop.height, minimumCropSide, 1.0);
    clamped.x = std::clamp(crop.x, 0.0, 1 - clamped.width);
    clamped.y = std::clamp(crop.y, 0.0, 1 - clamped.height);
    return clamped;
}

} // namespace lumenvale::EditorGeometry
