#pragma once

// How a target's picture becomes a movie frame of fixed size, and the canvas that
// holds frames that are not handed over directly. Internal to LumenvaleMedia.

#include "LumenvaleKit/PixelSize.h"
#include "capture/Grabber.h"
#include "capture/PixelRect.h"

#include <cstdint>
#include <vector>

namespace lumenvale::x11 {

enum class FitMode {
    // The grabbed part is the frame itself: handed over without a copy.
    direct,
    // The grabbed part is copied unscaled into the frame's top-left, black around it
    // (a target one pixel smaller than the movie).
    pad,
    // The whole target is scaled to fit the frame, centred, black around it.
    scale,
};

struct FitPlan {
    FitMode mode = FitMode::direct;
    // The top-left part of the target to read.
    PixelSize grab;
    // Where the picture lands in the frame.
    PixelRect placement;
    friend bool operator==(const FitPlan&, const FitPlan&) = default;
};

// Sizes within one pixel of the movie (the movie's sides are made even) are not
// scaled: an extra row or column is left out, a missing one is black. Anything
// else keeps its aspect ratio, scaled to the largest size that fits.
FitPlan planFit(PixelSize source, PixelSize movie);

// The movie-sized picture for frames that are scaled or padded, and the black one
// delivered when nothing was ever captured. Allocated on first use, then reused.
class MovieCanvas {
  public:
    explicit MovieCanvas(PixelSize movie) : movie_(movie) {}

    // Puts `image` into the canvas as `plan` says (not for FitMode::direct).
    void paint(const SourceImage& image, const FitPlan& plan);
    // The canvas as it is (black before anything was painted).
    SourceImage view();

  private:
    void ensure();

    PixelSize movie_;
    std::vector<std::uint8_t> pixels_;
    PixelRect lastPlacement_;
};

} // namespace lumenvale::x11
