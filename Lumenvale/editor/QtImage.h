#pragma once

#include "LumenvaleMedia/Image.h"

#include <QImage>

namespace lumenvale {

// A media picture (RGBA) as a QImage that owns its pixels; null for an empty one.
inline QImage toQImage(const Image& picture) {
    if (picture.isEmpty()) {
        return {};
    }
    const int width = static_cast<int>(picture.size.width);
    const int height = static_cast<int>(picture.size.height);
    return QImage(picture.rgba.data(), width, height, 4 * width, QImage::Format_RGBA8888).copy();
}

} // namespace lumenvale
