#pragma once

#include "LumenvaleKit/PixelSize.h"

#include <cstdint>
#include <vector>

namespace lumenvale {

// A decoded picture: 8-bit RGBA, rows top first, no padding (stride = 4 x width).
// Used for posters and filmstrip thumbnails; the application wraps it in a QImage.
struct Image {
    PixelSize size;
    std::vector<std::uint8_t> rgba;

    bool isEmpty() const { return size.width <= 0 || size.height <= 0; }
};

} // namespace lumenvale
