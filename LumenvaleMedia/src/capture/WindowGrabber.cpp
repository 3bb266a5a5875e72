#include "capture/WindowGrabber.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/Monitors.h"
#include "capture/WindowTree.h"
#include "capture/XProperties.h"

#include <algorithm>
#include <xcb/composite.h>

namespace lumenvale::x11 {
namespace {

xcb_void_cookie_t freePixmap(xcb_connection_t* c, std::uint32_t id) {
    return xcb_free_pixmap(c, id);
}

} // namespace

WindowGrabber::WindowGrabber(const XConnection& connection, xcb_window_t client)
    : connection_(connection), client_(client) {
    if (!connection.extensions().composite) {
        throw MediaError("This display can’t record a single window: it lacks the Composite "
                         "extension.");
    }
    if (!attach()) {
        throw MediaError(RecError::windowGone);
    }
    const PixelRect root = rootRect(connection);
    memory_ =
        std::make_unique<ShmImage>(connection, bgraBytes(std::max(frameRect_.width, root.width),
                                                         std::max(frameRect_.height, root.height)));
}

WindowGrabber::~WindowGrabber() {
    storage_.reset();
    if (frame_ != XCB_NONE) {
        xcb_composite_unredirect_window(connection_.get(), frame_,
                                        XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        connection_.flush();
    }
}

bool WindowGrabber::attach() {
    xcb_connection_t* c = connection_.get();
    const std::optional<xcb_window_t> frame = topLevelOf(connection_, client_);
    if (!frame) {
        return false;
    }
    if (frame_ != XCB_NONE && frame_ != *frame) {
        xcb_composite_unredirect_window(c, frame_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    }
    frame_ = *frame;
    frameLost_ = false;
    const std::uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, client_, XCB_CW_EVENT_MASK, &structure);
    if (frame_ != client_) {
        xcb_change_window_attributes(c, frame_, XCB_CW_EVENT_MASK, &structure);
    }
    // Keep the frame's picture in offscreen storage. Automatic: the screen shows it as before.
    xcb_composite_redirect_window(c, frame_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    readGeometry();
    storageStale_ = true;
    return !connection_.broken() && frameRect_.width > 0;
}

void WindowGrabber::readGeometry() {
    xcb_connection_t* c = connection_.get();
    auto frameCookie = xcb_get_geometry(c, frame_);
    auto clientCookie = xcb_get_geometry(c, client_);
    auto offsetCookie = xcb_translate_coordinates(c, client_, frame_, 0, 0);
    auto shadowCookie = requestProperty(c, client_, connection_.atom(Atom::gtkFrameExtents), 4);
    Reply<xcb_get_geometry_reply_t> frame{xcb_get_geometry_reply(c, frameCookie, nullptr)};
    Reply<xcb_get_geometry_reply_t> client{xcb_get_geometry_reply(c, clientCookie, nullptr)};
    Reply<xcb_translate_coordinates_reply_t> offset{
        xcb_translate_coordinates_reply(c, offsetCookie, nullptr)};
    const std::vector<std::uint32_t> shadow = words(propertyReply(c, shadowCookie).get());
    if (!frame) {
        frameRect_ = {};
        return;
    }
    const std::int64_t border = frame->border_width;
    borderWidth_ = border;
    frameRect_ = {frame->x, frame->y, frame->width + 2 * border, frame->height + 2 * border};
    insetLeft_ = insetTop_ = insetRight_ = insetBottom_ = 0;
    if (client && offset && shadow.size() == 4) {
        // _GTK_FRAME_EXTENTS: left, right, top, bottom of the client's own shadow.
        const std::int64_t left = border + offset->dst_x + shadow[0];
        const std::int64_t top = border + offset->dst_y + shadow[2];
        const std::int64_t width = std::int64_t{client->width} - shadow[0] - shadow[1];
        const std::int64_t height = std::int64_t{client->height} - shadow[2] - shadow[3];
        if (width > 0 && height > 0) {
            insetLeft_ = left;
            insetTop_ = top;
            insetRight_ = frameRect_.width - (left + width);
            insetBottom_ = frameRect_.height - (top + height);
        }
    }
    visible_ = {insetLeft_, insetTop_,
                std::max<std::int64_t>(0, frameRect_.width - insetLeft_ - insetRight_),
                std::max<std::int64_t>(0, frameRect_.height - insetTop_ - insetBottom_)};
}

void WindowGrabber::observe(const xcb_generic_event_t& event) {
    switch (event.response_type & 0x7f) {
    case XCB_DESTROY_NOTIFY: {
        const auto& destroyed = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
        if (destroyed.window == client_) {
            clientGone_ = true;
        } else if (destroyed.window == frame_) {
            frameLost_ = true;
        }
        break;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configured = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
        if (configured.window != frame_ || configured.event != frame_) {
            break;
        }
        const std::int64_t border = configured.border_width;
        borderWidth_ = border;
        const PixelRect moved{configured.x, configured.y, configured.width + 2 * border,
                              configured.height + 2 * border};
        if (moved.width != frameRect_.width || moved.height != frameRect_.height) {
            storageStale_ = true;
        }
        frameRect_ = moved;
        visible_ = {insetLeft_, insetTop_,
                    std::max<std::int64_t>(0, frameRect_.width - insetLeft_ - insetRight_),
                    std::max<std::int64_t>(0, frameRect_.height - insetTop_ - insetBottom_)};
        break;
    }
    case XCB_MAP_NOTIFY: {
        const auto& mapped = reinterpret_cast<const xcb_map_notify_event_t&>(event);
        if (mapped.window == frame_) {
            storageStale_ = true;
        }
        break;
    }
    case XCB_UNMAP_NOTIFY: {
        // Minimized or hidden: nothing to read until it shows again (the old
        // storage would only give the last picture as if it were new).
        const auto& unmapped = reinterpret_cast<const xcb_unmap_notify_event_t&>(event);
        if (unmapped.window == frame_) {
            storage_.reset();
            storageStale_ = true;
        }
        break;
    }
    case XCB_REPARENT_NOTIFY: {
        const auto& reparented = reinterpret_cast<const xcb_reparent_notify_event_t&>(event);
        if (reparented.window == client_) {
            frameLost_ = true;
        }
        break;
    }
    default:
        break;
    }
}

std::optional<RecError> WindowGrabber::update(std::chrono::steady_clock::time_point) {
    if (clientGone_) {
        return RecError::windowGone;
    }
    if (frameLost_ && !attach()) {
        return windowExists(connection_, client_) ? std::nullopt
                                                  : std::optional(RecError::windowGone);
    }
    if (storageStale_) {
        nameStorage();
    }
    return std::nullopt;
}

// Names the frame's current offscreen pixmap. Fails while the frame is not viewable
// (minimized); then the next frame tries again.
void WindowGrabber::nameStorage() {
    xcb_connection_t* c = connection_.get();
    storage_.reset();
    const std::uint32_t pixmap = connection_.generateID();
    Error error{xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, frame_, pixmap))};
    if (error) {
        return;
    }
    storage_ = ServerResource(c, pixmap, freePixmap);
    storageStale_ = false;
}

void WindowGrabber::request(PixelSize part) {
    requested_ = part;
    requestSent_ = false;
    if (!storage_ || part.width <= 0 || part.height <= 0) {
        return;
    }
    if (memory_->capacityBytes() < bgraBytes(part.width, part.height)) {
        memory_.reset();
        memory_ = std::make_unique<ShmImage>(connection_, bgraBytes(part.width, part.height));
        ++memoryGeneration_;
    }
    cookie_ = memory_->request(storage_.id(), {visible_.x, visible_.y, part.width, part.height});
    requestSent_ = true;
}

std::optional<SourceImage> WindowGrabber::wait() {
    if (!requestSent_) {
        return std::nullopt;
    }
    if (!memory_->wait(cookie_)) {
        storageStale_ = true;
        return std::nullopt;
    }
    return SourceImage{memory_->pixels(), requested_.width * 4, requested_,
                       frameRect_.x + visible_.x, frameRect_.y + visible_.y};
}

} // namespace lumenvale::x11
