#include "capture/PointerOverlay.h"

#include <algorithm>
#include <cstring>

namespace lumenvale::x11 {

PointerOverlay::PointerOverlay(const XConnection& connection)
    : connection_(connection), available_(connection.extensions().xfixes) {
    if (available_) {
        xcb_xfixes_select_cursor_input(connection.get(), connection.root(),
                                       XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    }
}

void PointerOverlay::observe(const xcb_generic_event_t& event) {
    if (available_ && (event.response_type & 0x7f) ==
                          connection_.extensions().xfixesFirstEvent + XCB_XFIXES_CURSOR_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_xfixes_cursor_notify_event_t&>(event);
        if (notify.cursor_serial != serial_) {
            stale_ = true;
        }
    }
}

void PointerOverlay::request() {
    requested_ = available_ && stale_;
    if (requested_) {
        cookie_ = xcb_xfixes_get_cursor_image(connection_.get());
    }
}

void PointerOverlay::wait() {
    if (!requested_) {
        return;
    }
    requested_ = false;
    Reply<xcb_xfixes_get_cursor_image_reply_t> reply{
        xcb_xfixes_get_cursor_image_reply(connection_.get(), cookie_, nullptr)};
    if (!reply) {
        return;
    }
    stale_ = false;
    serial_ = reply->cursor_serial;
    width_ = reply->width;
    height_ = reply->height;
    hotspotX_ = reply->xhot;
    hotspotY_ = reply->yhot;
    const auto count = static_cast<std::size_t>(width_ * height_);
    argb_.resize(count);
    if (count > 0 && static_cast<std::size_t>(
                         xcb_xfixes_get_cursor_image_cursor_image_length(reply.get())) >= count) {
        std::memcpy(argb_.data(), xcb_xfixes_get_cursor_image_cursor_image(reply.get()),
                    count * sizeof(std::uint32_t));
    }
}

void PointerOverlay::draw(const SourceImage& image, std::int64_t x, std::int64_t y) const {
    const std::int64_t left = x - hotspotX_ - image.rootX;
    const std::int64_t top = y - hotspotY_ - image.rootY;
    const std::int64_t fromX = std::max<std::int64_t>(0, -left);
    const std::int64_t fromY = std::max<std::int64_t>(0, -top);
    const std::int64_t toX = std::min(width_, image.size.width - left);
    const std::int64_t toY = std::min(height_, image.size.height - top);
    for (std::int64_t row = fromY; row < toY; ++row) {
        std::uint8_t* line = image.bgra + (top + row) * image.strideBytes;
        const std::uint32_t* cursor = argb_.data() + row * width_;
        for (std::int64_t column = fromX; column < toX; ++column) {
            blendPremultiplied(line + (left + column) * 4, cursor[column]);
        }
    }
}

} // namespace lumenvale::x11
