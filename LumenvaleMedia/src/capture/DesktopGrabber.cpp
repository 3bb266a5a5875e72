#include "capture/DesktopGrabber.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/Monitors.h"

#include <algorithm>
#include <cstring>
#include <xcb/randr.h>

namespace lumenvale::x11 {
namespace {

// RandR does not announce every change of its monitors, so they are also read
// again this often.
constexpr std::chrono::milliseconds displayPollInterval{500};

std::optional<Monitor> findMonitor(const std::vector<Monitor>& monitors, const std::string& name) {
    auto found = std::find_if(monitors.begin(), monitors.end(),
                              [&](const Monitor& monitor) { return monitor.name == name; });
    return found == monitors.end() ? std::nullopt : std::optional(*found);
}

std::optional<Monitor> monitorUnderPointer(const XConnection& connection,
                                           const std::vector<Monitor>& monitors) {
    xcb_connection_t* c = connection.get();
    Reply<xcb_query_pointer_reply_t> pointer{
        xcb_query_pointer_reply(c, xcb_query_pointer(c, connection.root()), nullptr)};
    return pointer ? monitorAt(monitors, pointer->root_x, pointer->root_y)
                   : monitorAt(monitors, -1, -1);
}

} // namespace

DesktopGrabber::DesktopGrabber(const XConnection& connection, const CaptureTarget& target,
                               OwnWindows ownWindows, std::vector<std::uint32_t> keptWindows)
    : connection_(connection), root_(rootRect(connection)) {
    if (const auto* screen = std::get_if<CaptureScreen>(&target)) {
        const std::vector<Monitor> monitors = queryMonitors(connection);
        const std::optional<Monitor> monitor = screen->id
                                                   ? findMonitor(monitors, *screen->id)
                                                   : monitorUnderPointer(connection, monitors);
        if (!monitor) {
            throw MediaError(RecError::displayGone);
        }
        screenName_ = monitor->name;
        region_ = monitor->rect;
    } else {
        region_ = enclosingPixels(std::get<CaptureArea>(target).rect);
    }
    if (intersection(region_, root_).empty()) {
        throw MediaError(RecError::displayGone);
    }
    ensureMemory(
        bgraBytes(std::max(region_.width, root_.width), std::max(region_.height, root_.height)));
    if (ownWindows == OwnWindows::hidden) {
        compositor_ = std::make_unique<DesktopCompositor>(connection);
        topLevels_ = std::make_unique<TopLevels>(connection, std::move(keptWindows));
    }
}

void DesktopGrabber::ensureMemory(std::size_t bytes) {
    if (!memory_ || memory_->capacityBytes() < bytes) {
        memory_.reset();
        memory_ = std::make_unique<ShmImage>(connection_, bytes);
        ++memoryGeneration_;
    }
}

void DesktopGrabber::observe(const xcb_generic_event_t& event) {
    if (topLevels_) {
        topLevels_->observe(event);
    }
    const std::uint8_t type = event.response_type & 0x7f;
    const std::uint8_t randrBase = connection_.extensions().randrFirstEvent;
    if (connection_.extensions().randr && (type == randrBase + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                                           type == randrBase + XCB_RANDR_NOTIFY)) {
        displaysStale_ = true;
    }
}

std::optional<RecError> DesktopGrabber::update(std::chrono::steady_clock::time_point now) {
    if (displaysStale_ || now >= nextDisplayPoll_) {
        displaysStale_ = false;
        nextDisplayPoll_ = now + displayPollInterval;
        root_ = rootRect(connection_);
        if (screenName_) {
            const std::optional<Monitor> monitor =
                findMonitor(queryMonitors(connection_), *screenName_);
            if (!monitor) {
                return RecError::displayGone;
            }
            region_ = monitor->rect;
        }
        if (intersection(region_, root_).empty()) {
            return RecError::displayGone;
        }
    }
    if (topLevels_) {
        topLevels_->refresh();
    }
    return std::nullopt;
}

std::vector<PixelRect> DesktopGrabber::ownParts() const {
    std::vector<PixelRect> parts = topLevels_->ownParts(grabbed_);
    if (parts.size() > maxPatches) {
        PixelRect bounds = parts.front();
        for (const PixelRect& part : parts) {
            const std::int64_t right = std::max(bounds.x + bounds.width, part.x + part.width);
            const std::int64_t bottom = std::max(bounds.y + bounds.height, part.y + part.height);
            bounds.x = std::min(bounds.x, part.x);
            bounds.y = std::min(bounds.y, part.y);
            bounds.width = right - bounds.x;
            bounds.height = bottom - bounds.y;
        }
        parts = {bounds};
    }
    return parts;
}

void DesktopGrabber::request(PixelSize part) {
    requested_ = {region_.x, region_.y, part.width, part.height};
    grabbed_ = intersection(requested_, root_);
    patches_.clear();
    patchCookies_.clear();
    if (topLevels_) {
        patches_ = ownParts();
    }
    std::size_t bytes = bgraBytes(part.width, part.height);
    for (const PixelRect& patch : patches_) {
        bytes += bgraBytes(patch.width, patch.height);
    }
    ensureMemory(bytes);
    cookie_ = memory_->request(connection_.root(), grabbed_);
    if (!patches_.empty()) {
        const xcb_pixmap_t composed =
            compositor_->compose(grabbed_, patches_, topLevels_->windows());
        std::size_t offset = bgraBytes(part.width, part.height);
        for (const PixelRect& patch : patches_) {
            patchCookies_.push_back(memory_->request(
                composed, {patch.x - grabbed_.x, patch.y - grabbed_.y, patch.width, patch.height},
                offset));
            offset += bgraBytes(patch.width, patch.height);
        }
    }
}

std::optional<SourceImage> DesktopGrabber::wait() {
    if (grabbed_.empty()) {
        return std::nullopt;
    }
    bool complete = memory_->wait(cookie_);
    for (const xcb_shm_get_image_cookie_t& cookie : patchCookies_) {
        complete = memory_->wait(cookie) && complete;
    }
    if (!complete) {
        return std::nullopt; // never a picture with this process's windows in it
    }
    // The composed patches go over this process's windows in the screen's picture.
    std::uint8_t* pixels = memory_->pixels();
    const auto stride = static_cast<std::size_t>(grabbed_.width) * 4;
    std::size_t offset = bgraBytes(requested_.width, requested_.height);
    for (const PixelRect& patch : patches_) {
        const auto patchStride = static_cast<std::size_t>(patch.width) * 4;
        const auto left = static_cast<std::size_t>(patch.x - grabbed_.x) * 4;
        for (std::int64_t row = 0; row < patch.height; ++row) {
            std::memcpy(pixels + static_cast<std::size_t>(patch.y - grabbed_.y + row) * stride +
                            left,
                        pixels + offset + static_cast<std::size_t>(row) * patchStride, patchStride);
        }
        offset += bgraBytes(patch.width, patch.height);
    }
    if (grabbed_ != requested_) {
        padInto(requested_);
    }
    return SourceImage{memory_->pixels(), requested_.width * 4,
                       PixelSize{requested_.width, requested_.height}, requested_.x, requested_.y};
}

TargetPlace DesktopGrabber::place() const {
    return {connection_.root(), region_.x, region_.y, region_.x, region_.y};
}

// The patches over this process's windows show what lies under them, and the
// display reports no change there when a window under one of ours is drawn. And
// with every window drawn offscreen (own windows hidden), the display does not
// always report a window moved, mapped or restacked over the root (one covering
// the whole screen moved into view goes unreported): then everything is read.
std::vector<PixelRect> DesktopGrabber::unwatchedParts() {
    if (!topLevels_) {
        return {};
    }
    std::vector<PixelRect> parts = topLevels_->ownParts(intersection(region_, root_));
    for (PixelRect& part : parts) {
        part.x -= region_.x;
        part.y -= region_.y;
    }
    const std::vector<TopLevel>& windows = topLevels_->windows();
    const bool moved =
        windows.size() != placements_.size() ||
        !std::equal(windows.begin(), windows.end(), placements_.begin(),
                    [](const TopLevel& window, const Placement& placement) {
                        return placement == Placement{window.id, window.rect, window.viewable};
                    });
    if (moved) {
        placements_.clear();
        for (const TopLevel& window : windows) {
            placements_.push_back({window.id, window.rect, window.viewable});
        }
        parts.push_back({0, 0, region_.width, region_.height});
    }
    return parts;
}

// A window's move, map or restack is reported before the reply of any grab the
// server handled after it, so the events drained after a grab tell whether this
// process's windows were already elsewhere than the patches assumed when it was taken.
bool DesktopGrabber::needsRetake() {
    if (!topLevels_) {
        return false;
    }
    topLevels_->refresh();
    return ownParts() != patches_;
}

// Moves the rows of the grabbed part to their place in the requested picture and
// paints the rest (off the desktop) black. Rows go last to first: each one's new
// place lies at or after its old one.
void DesktopGrabber::padInto(const PixelRect& part) {
    std::uint8_t* pixels = memory_->pixels();
    const auto partStride = static_cast<std::size_t>(part.width) * 4;
    const auto grabStride = static_cast<std::size_t>(grabbed_.width) * 4;
    const auto left = static_cast<std::size_t>(grabbed_.x - part.x) * 4;
    const std::int64_t top = grabbed_.y - part.y;
    for (std::int64_t row = part.height - 1; row >= 0; --row) {
        std::uint8_t* line = pixels + static_cast<std::size_t>(row) * partStride;
        const std::int64_t source = row - top;
        if (source < 0 || source >= grabbed_.height) {
            std::memset(line, 0, partStride);
            continue;
        }
        std::memmove(line + left, pixels + static_cast<std::size_t>(source) * grabStride,
                     grabStride);
        std::memset(line, 0, left);
        std::memset(line + left + grabStride, 0, partStride - left - grabStride);
    }
}

} // namespace lumenvale::x11
