#pragma once

// The pointer as a compositor describes it beside its pictures when asked to (the
// ScreenCast cursor mode "metadata", for portals that cannot draw it in): where its
// hotspot is and, whenever it changes, its image. Lumenvale then draws it itself.
// Internal to LumenvaleMedia.

#include "LumenvaleKit/PixelSize.h"
#include "capture/PixelRect.h"

#include <cstdint>
#include <vector>

struct spa_buffer;

namespace lumenvale::portal {

struct StreamPointer {
    bool visible = false;
    // The hotspot's place in the picture, in pixels.
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t hotspotX = 0;
    std::int64_t hotspotY = 0;
    PixelSize size;
    std::vector<std::uint32_t> argb; // premultiplied ARGB, rows packed
    // Counts the images taken, so a changed image tells from the one before.
    std::int64_t imageSerial = 0;

    // Where the image covers the picture (empty when hidden).
    x11::PixelRect bounds() const {
        return visible ? x11::PixelRect{x - hotspotX, y - hotspotY, size.width, size.height}
                       : x11::PixelRect{};
    }
    bool sameAs(const StreamPointer& other) const {
        return visible == other.visible && x == other.x && y == other.y &&
               hotspotX == other.hotspotX && hotspotY == other.hotspotY &&
               imageSerial == other.imageSerial;
    }
};

// The room asked for each buffer's pointer description: an image of up to 64x64.
std::int32_t pointerMetaBytes();

// Takes note of what `buffer` says of the pointer: its place when it says one, hidden
// when it says there is none, and its image when it carries one (RGBA or BGRA, straight
// or premultiplied alpha taken as straight; others leave the image as it was). A buffer
// without a pointer description changes nothing.
void readPointer(const spa_buffer& buffer, StreamPointer& pointer);

// Blends the pointer over `bgra` (rows `strideBytes` apart), a picture of `size`
// whose top-left pixel is the picture's pixel (originX, originY); what falls outside
// is left out.
void drawPointer(const StreamPointer& pointer, std::uint8_t* bgra, std::int64_t strideBytes,
                 PixelSize size, std::int64_t originX, std::int64_t originY);

} // namespace lumenvale::portal
