#include "capture/portal/StreamPointer.h"

#include "capture/PointerOverlay.h"

#include <algorithm>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>

namespace lumenvale::portal {

namespace {

constexpr std::int64_t largestImageSide = 64;

// A straight-alpha pixel as premultiplied ARGB.
std::uint32_t premultiplied(std::uint32_t red, std::uint32_t green, std::uint32_t blue,
                            std::uint32_t alpha) {
    const auto scale = [alpha](std::uint32_t channel) {
        return (channel * alpha + 127) / 255;
    };
    return alpha << 24 | scale(red) << 16 | scale(green) << 8 | scale(blue);
}

} // namespace

std::int32_t pointerMetaBytes() {
    return static_cast<std::int32_t>(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) +
                                     largestImageSide * largestImageSide * 4);
}

void readPointer(const spa_buffer& buffer, StreamPointer& pointer) {
    const auto* cursor = static_cast<const spa_meta_cursor*>(
        spa_buffer_find_meta_data(&buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)));
    if (cursor == nullptr) {
        return;
    }
    if (cursor->id == 0) {
        pointer.visible = false;
        return;
    }
    pointer.visible = true;
    pointer.x = cursor->position.x;
    pointer.y = cursor->position.y;
    pointer.hotspotX = cursor->hotspot.x;
    pointer.hotspotY = cursor->hotspot.y;
    if (cursor->bitmap_offset < sizeof(spa_meta_cursor)) {
        return; // the image as before
    }
    const auto* base = reinterpret_cast<const std::uint8_t*>(cursor);
    const auto* bitmap = reinterpret_cast<const spa_meta_bitmap*>(base + cursor->bitmap_offset);
    const bool bgra = bitmap->format == SPA_VIDEO_FORMAT_BGRA;
    if (!bgra && bitmap->format != SPA_VIDEO_FORMAT_RGBA) {
        return;
    }
    const std::int64_t width = std::min<std::int64_t>(bitmap->size.width, largestImageSide);
    const std::int64_t height = std::min<std::int64_t>(bitmap->size.height, largestImageSide);
    const auto* pixels = reinterpret_cast<const std::uint8_t*>(bitmap) + bitmap->offset;
    pointer.size = {width, height};
    pointer.argb.assign(static_cast<std::size_t>(width * height), 0);
    for (std::int64_t row = 0; row < height; ++row) {
        const std::uint8_t* in = pixels + row * bitmap->stride;
        for (std::int64_t column = 0; column < width; ++column, in += 4) {
            const std::uint32_t red = bgra ? in[2] : in[0];
            const std::uint32_t blue = bgra ? in[0] : in[2];
            pointer.argb[static_cast<std::size_t>(row * width + column)] =
                premultiplied(red, in[1], blue, in[3]);
        }
    }
    ++pointer.imageSerial;
}

void drawPointer(const StreamPointer& pointer, std::uint8_t* bgra, std::int64_t strideBytes,
                 PixelSize size, std::int64_t originX, std::int64_t originY) {
    const x11::PixelRect image = pointer.bounds();
    const x11::PixelRect shown =
        x11::intersection(image, x11::PixelRect{originX, originY, size.width, size.height});
    if (shown.empty() || pointer.argb.empty()) {
        return;
    }
    for (std::int64_t y = shown.y; y < shown.y + shown.height; ++y) {
        std::uint8_t* row = bgra + (y - originY) * strideBytes;
        for (std::int64_t x = shown.x; x < shown.x + shown.width; ++x) {
            x11::blendPremultiplied(
                row + (x - originX) * 4,
                pointer
                    .argb[static_cast<std::size_t>((y - image.y) * image.width + (x - image.x))]);
        }
    }
}

} // namespace lumenvale::portal
