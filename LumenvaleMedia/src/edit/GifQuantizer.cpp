#include "edit/GifQuantizer.h"

#include <algorithm>

namespace lumenvale::edit {
namespace {

constexpr int paletteColours = 255; // one index stays free for the writer's transparency
constexpr int cubeLevels = 5;       // of each channel in the global palette's colour cube
// The global palette serves a frame when its mean weighted squared error on the
// pixels that changed stays within this (about 6 levels per channel), or within
// sharedErrorFactor of its error on the first frame plus a little.
constexpr double sharedErrorLimit = 300;
constexpr double sharedErrorFactor = 1.25;
constexpr double sharedErrorAllowance = 8;
// A pixel whose colour moved less than this (weighted squared distance, about 2 levels
// per channel) since its index was chosen keeps its index.
constexpr int unchangedDistance = 48;
// Diffused error is damped to this many sixteenths of its size.
constexpr int errorKeptSixteenths = 14;

std::vector<Colour> globalColours(const ColourHistogram& histogram) {
    std::vector<Colour> colours =
        choosePalette(histogram, paletteColours - cubeLevels * cubeLevels * cubeLevels);
    for (int r = 0; r < cubeLevels; ++r) {
        for (int g = 0; g < cubeLevels; ++g) {
            for (int b = 0; b < cubeLevels; ++b) {
                const auto level = [](int step) {
                    return static_cast<std::uint8_t>(step * 255 / (cubeLevels - 1));
                };
                colours.push_back({level(r), level(g), level(b)});
            }
        }
    }
    std::sort(colours.begin(), colours.end());
    colours.erase(std::unique(colours.begin(), colours.end()), colours.end());
    return colours;
}

} // namespace

GifQuantizer::GifQuantizer(int width, int height)
    : width_(width), height_(height),
      indices_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
      coded_(indices_.size() * 3), errors_(static_cast<std::size_t>(2 * (width + 2) * 3)) {}

GifQuantizer::Frame GifQuantizer::quantize(const std::uint8_t* rgb, int stride) {
    if (!shared_) {
        histogram_.count(rgb, width_, height_, stride);
        shared_ = std::make_unique<Palette>(globalColours(histogram_));
        sharedBaselineError_ = shared_->meanError(histogram_);
        dither(rgb, stride, *shared_, false);
        previousShared_ = true;
        return {indices_, shared_->colours(), GifFrameCoding::sharedRestarting};
    }
    if (sharedServes(rgb, stride)) {
        const bool continuing = previousShared_;
        dither(rgb, stride, *shared_, continuing);
        previousShared_ = true;
        return {indices_, shared_->colours(),
                continuing ? GifFrameCoding::sharedContinuing : GifFrameCoding::sharedRestarting};
    }
    histogram_.count(rgb, width_, height_, stride);
    own_ = std::make_unique<Palette>(choosePalette(histogram_, paletteColours));
    dither(rgb, stride, *own_, false);
    previousShared_ = false;
    return {indices_, own_->colours(), GifFrameCoding::own};
}

bool GifQuantizer::sharedServes(const std::uint8_t* rgb, int stride) {
    // After a frame with the global palette only the changed pixels are coded again;
    // after one with its own palette, every pixel is.
    if (previousShared_) {
        histogram_.countChanged(rgb, width_, height_, stride, coded_.data(), unchangedDistance);
    } else {
        histogram_.count(rgb, width_, height_, stride);
    }
    const double error = shared_->meanError(histogram_);
    return error <= sharedErrorLimit ||
           error <= sharedBaselineError_ * sharedErrorFactor + sharedErrorAllowance;
}

void GifQuantizer::dither(const std::uint8_t* rgb, int stride, Palette& palette,
                          bool keepUnchanged) {
    const auto& colours = palette.colours();
    const int rowErrors = (width_ + 2) * 3;
    std::fill(errors_.begin(), errors_.end(), 0);
    for (int y = 0; y < height_; ++y) {
        // Errors are kept in sixteenths; the margin of one pixel each side takes what
        // spreads past the edge.
        int* current = errors_.data() + (y % 2) * rowErrors;
        int* below = errors_.data() + ((y + 1) % 2) * rowErrors;
        std::fill(below, below + rowErrors, 0);
        const bool rightward = y % 2 == 0;
        const int step = rightward ? 1 : -1;
        const std::uint8_t* row = rgb + static_cast<std::ptrdiff_t>(y) * stride;
        for (int i = 0; i < width_; ++i) {
            const int x = rightward ? i : width_ - 1 - i;
            const auto pixel = static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                               static_cast<std::size_t>(x);
            const std::uint8_t* source = row + x * 3;
            std::uint8_t* coded = coded_.data() + pixel * 3;
            if (keepUnchanged && colourDistance(source[0], source[1], source[2], coded[0], coded[1],
                                                coded[2]) <= unchangedDistance) {
                continue; // same index as before; its error is not spread
            }
            const int* error = current + (x + 1) * 3;
            int wanted[3];
            for (int c = 0; c < 3; ++c) {
                wanted[c] = std::clamp(source[c] + (error[c] * errorKeptSixteenths) / 256, 0, 255);
            }
            const std::uint8_t index = palette.nearest(wanted[0], wanted[1], wanted[2]);
            indices_[pixel] = index;
            coded[0] = source[0];
            coded[1] = source[1];
            coded[2] = source[2];
            const Colour& chosen = colours[index];
            int* ahead = current + (x + 1 + step) * 3;
            int* under = below + (x + 1) * 3;
            for (int c = 0; c < 3; ++c) {
                const int e = wanted[c] - chosen[static_cast<std::size_t>(c)];
                ahead[c] += e * 7;
                under[c - step * 3] += e * 3;
                under[c] += e * 5;
                under[c + step * 3] += e * 1;
            }
        }
    }
}

} // namespace lumenvale::edit
