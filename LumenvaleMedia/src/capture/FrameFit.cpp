#include "capture/FrameFit.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <libyuv/planar_functions.h>
#include <libyuv/scale_argb.h>

namespace lumenvale::x11 {

FitPlan planFit(PixelSize source, PixelSize movie) {
    if (std::abs(source.width - movie.width) <= 1 && std::abs(source.height - movie.height) <= 1) {
        const PixelSize grab{std::min(source.width, movie.width),
                             std::min(source.height, movie.height)};
        return {
            grab == movie ? FitMode::direct : FitMode::pad, grab, {0, 0, grab.width, grab.height}};
    }
    const double factor =
        std::min(static_cast<double>(movie.width) / static_cast<double>(source.width),
                 static_cast<double>(movie.height) / static_cast<double>(source.height));
    const auto fitted = [factor](std::int64_t side, std::int64_t limit) {
        return std::clamp<std::int64_t>(std::llround(static_cast<double>(side) * factor), 1, limit);
    };
    const std::int64_t width = fitted(source.width, movie.width);
    const std::int64_t height = fitted(source.height, movie.height);
    return {FitMode::scale,
            source,
            {(movie.width - width) / 2, (movie.height - height) / 2, width, height}};
}

void MovieCanvas::ensure() {
    if (pixels_.empty()) {
        pixels_.assign(static_cast<std::size_t>(movie_.width * movie_.height * 4), 0);
    }
}

void MovieCanvas::paint(const SourceImage& image, const FitPlan& plan) {
    ensure();
    const auto stride = static_cast<int>(movie_.width * 4);
    if (plan.placement != lastPlacement_) {
        std::fill(pixels_.begin(), pixels_.end(), std::uint8_t{0});
        lastPlacement_ = plan.placement;
    }
    std::uint8_t* target = pixels_.data() + plan.placement.y * stride + plan.placement.x * 4;
    if (plan.mode == FitMode::scale) {
        libyuv::ARGBScale(image.bgra, static_cast<int>(image.strideBytes),
                          static_cast<int>(image.size.width), static_cast<int>(image.size.height),
                          target, stride, static_cast<int>(plan.placement.width),
                          static_cast<int>(plan.placement.height), libyuv::kFilterBilinear);
    } else {
        libyuv::ARGBCopy(image.bgra, static_cast<int>(image.strideBytes), target, stride,
                         static_cast<int>(plan.placement.width),
                         static_cast<int>(plan.placement.height));
    }
}

SourceImage MovieCanvas::view() {
    ensure();
    return {pixels_.data(), movie_.width * 4, movie_, 0, 0};
}

} // namespace lumenvale::x11
