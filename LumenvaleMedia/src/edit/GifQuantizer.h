#pragma once

// Turns the pictures of a GIF into palette frames.
//
// The first frame's palette becomes the file's global palette: 130 colours chosen for
// that frame plus an even 5 x 5 x 5 colour cube, so that later frames with new
// colours can often still be dithered well with it. A later frame shares it when the
// pixels that changed since the frame before are served about as well by it (mean
// weighted error at most sharedErrorLimit); otherwise the frame gets a palette of
// 255 colours chosen for it alone. Frames that share the global palette one after
// the other keep the palette index of every pixel whose colour has not really
// changed, so the GIF writer leaves those pixels out (transparent over the frame
// before) instead of coding dithering noise again. Colours are dithered with
// serpentine Floyd–Steinberg error diffusion, slightly damped.
//
// Internal to the edit area; used by one thread.

#include "edit/GifPalette.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace lumenvale::edit {

// How a frame's palette relates to the frame before.
enum class GifFrameCoding {
    sharedContinuing, // the global palette, as the frame before: unchanged pixels may be left out
    sharedRestarting, // the global palette after a frame with its own: code every pixel
    own               // a palette of its own
};

class GifQuantizer {
  public:
    GifQuantizer(int width, int height);

    struct Frame {
        const std::vector<std::uint8_t>& indices; // width x height, rows top first
        const std::vector<Colour>& palette;       // at most 255 colours, each once
        GifFrameCoding coding;
    };

    // `rgb` is packed 8-bit RGB of the quantizer's size, `stride` bytes per row. The
    // result is valid until the next call.
    Frame quantize(const std::uint8_t* rgb, int stride);

  private:
    bool sharedServes(const std::uint8_t* rgb, int stride);
    void dither(const std::uint8_t* rgb, int stride, Palette& palette, bool keepUnchanged);

    int width_;
    int height_;
    std::unique_ptr<Palette> shared_;
    double sharedBaselineError_ = 0; // its error on the first frame
    std::unique_ptr<Palette> own_;
    bool previousShared_ = false;
    ColourHistogram histogram_;
    std::vector<std::uint8_t> indices_;
    std::vector<std::uint8_t> coded_; // per pixel: the colour it had when its index was chosen
    std::vector<int> errors_;         // two rows of diffused error, 3 channels, with margins
};

} // namespace lumenvale::edit
