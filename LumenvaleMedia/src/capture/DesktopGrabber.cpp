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

void DesktopGrabber::request(PixelSize part) {
    requested_ = {region_.x, region_.y, part.width, part.height};
    grabbed_ = intersection(requested_, root_);
    ensureMemory(bgraBytes(part.width, part.height));
    composed_ = topLevels_ && topLevels_->ownWindowOverlaps(grabbed_);
    if (composed_) {
        const xcb_pixmap_t picture = compositor_->compose(grabbed_, topLevels_->windows());
        cookie_ = memory_->request(picture, {0, 0, grabbed_.width, grabbed_.height});
    } else {
        cookie_ = memory_->request(connection_.root(), grabbed_);
    }
}

std::optional<SourceImage> DesktopGrabber::wait() {
    if (grabbed_.empty() || !memory_->wait(cookie_)) {
        return std::nullopt;
    }
    if (grabbed_ != requested_) {
        padInto(requested_);
    }
    return SourceImage{memory_->pixels(), requested_.width * 4,
                       PixelSize{requested_.width, requested_.height}, requested_.x, requested_.y};
}

// A window's move, map or restack is reported before the reply of any grab the
// server handled after it, so the events drained after a plain grab tell whether
// one of this process's windows was already over the target when it was taken.
bool DesktopGrabber::needsRetake() {
    if (!topLevels_ || composed_) {
        return false;
    }
    topLevels_->refresh();
    return topLevels_->ownWindowOverlaps(grabbed_);
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
