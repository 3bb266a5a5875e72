#pragma once

// The mouse pointer drawn into frames: the XFixes cursor image, fetched again only
// when the server says the cursor changed, blended at the pointer position minus
// its hotspot. Internal to LumenvaleMedia.

#include "capture/Grabber.h"
#include "capture/XConnection.h"

#include <cstdint>
#include <vector>
#include <xcb/xfixes.h>

namespace lumenvale::x11 {

class PointerOverlay {
  public:
    // Asks for cursor-change events on the root (needs XFIXES; without it, the
    // overlay draws nothing).
    explicit PointerOverlay(const XConnection& connection);

    // Takes note of cursor-change events.
    void observe(const xcb_generic_event_t& event);
    // Sends the request for the new cursor image, when it changed.
    void request();
    // Receives it.
    void wait();

    // Blends the cursor into `image` with its hotspot at root position (x, y).
    void draw(const SourceImage& image, std::int64_t x, std::int64_t y) const;
    // Where draw() puts the cursor for a pointer at root position (x, y), in root
    // coordinates.
    PixelRect bounds(std::int64_t x, std::int64_t y) const {
        return {x - hotspotX_, y - hotspotY_, width_, height_};
    }

    std::uint32_t serial() const { return serial_; }

  private:
    const XConnection& connection_;
    bool available_ = false;
    bool stale_ = true;
    bool requested_ = false;
    xcb_xfixes_get_cursor_image_cookie_t cookie_{};
    std::uint32_t serial_ = 0;
    std::int64_t width_ = 0;
    std::int64_t height_ = 0;
    std::int64_t hotspotX_ = 0;
    std::int64_t hotspotY_ = 0;
    std::vector<std::uint32_t> argb_; // premultiplied
};

// Blends premultiplied ARGB `pixel` over the BGRA pixel at `target`.
inline void blendPremultiplied(std::uint8_t* target, std::uint32_t pixel) {
    const std::uint32_t alpha = pixel >> 24;
    if (alpha == 0) {
        return;
    }
    const std::uint32_t keep = 255 - alpha;
    for (int channel = 0; channel < 3; ++channel) {
        const std::uint32_t source = (pixel >> (8 * channel)) & 0xff;
        const std::uint32_t value = source + (target[channel] * keep + 127) / 255;
        target[channel] = static_cast<std::uint8_t>(value > 255 ? 255 : value);
    }
}

} // namespace lumenvale::x11
