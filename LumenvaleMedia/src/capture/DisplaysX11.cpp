#include "LumenvaleMedia/DisplaysX11.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/Monitors.h"
#include "capture/WindowTree.h"
#include "capture/XConnection.h"
#include "capture/XProperties.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace lumenvale {

using namespace x11;

namespace {

std::optional<double> environmentScale() {
    const char* text = std::getenv("QT_SCALE_FACTOR");
    if (text == nullptr || *text == '\0') {
        return std::nullopt;
    }
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    return end != text ? std::optional(value) : std::nullopt;
}

bool holds(const std::vector<std::uint32_t>& list, std::uint32_t value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

class DisplaysX11::State {
  public:
    XConnection connection;

    // Throws when the display went away.
    void check() const {
        if (connection.broken()) {
            throw MediaError(RecError::displayGone);
        }
    }
};

DisplaysX11::DisplaysX11() : state_(std::make_unique<State>()) {}

DisplaysX11::~DisplaysX11() = default;

bool DisplaysX11::captureAvailable() {
    state_->check();
    const Extensions& extensions = state_->connection.extensions();
    return extensions.shm && extensions.composite;
}

std::vector<DisplayScreen> DisplaysX11::screens() {
    const XConnection& connection = state_->connection;
    xcb_connection_t* c = connection.get();
    auto resources = requestProperty(c, connection.root(), XCB_ATOM_RESOURCE_MANAGER, 1 << 16);
    const std::vector<Monitor> monitors = queryMonitors(connection);
    const double scale = desktopScale(text(propertyReply(c, resources).get()), environmentScale());
    state_->check();
    std::vector<DisplayScreen> screens;
    for (const Monitor& monitor : monitors) {
        screens.push_back({monitor.name, toRect(monitor.rect), scale, monitor.primary});
    }
    return screens;
}

DesktopPoint DisplaysX11::pointer() {
    const XConnection& connection = state_->connection;
    xcb_connection_t* c = connection.get();
    Reply<xcb_query_pointer_reply_t> pointer{
        xcb_query_pointer_reply(c, xcb_query_pointer(c, connection.root()), nullptr)};
    state_->check();
    if (!pointer) {
        return {};
    }
    return {static_cast<double>(pointer->root_x), static_cast<double>(pointer->root_y)};
}

std::optional<DisplayScreen> DisplaysX11::screenUnderPointer() {
    const DesktopPoint point = pointer();
    const std::vector<DisplayScreen> all = screens();
    std::vector<Monitor> monitors;
    for (const DisplayScreen& screen : all) {
        monitors.push_back({screen.id, enclosingPixels(screen.frame), screen.primary});
    }
    const std::optional<Monitor> found =
        monitorAt(monitors, static_cast<std::int64_t>(point.x), static_cast<std::int64_t>(point.y));
    if (!found) {
        return std::nullopt;
    }
    return *std::find_if(all.begin(), all.end(),
                         [&](const DisplayScreen& screen) { return screen.id == found->name; });
}

std::vector<DesktopWindow> DisplaysX11::windows() {
    const XConnection& connection = state_->connection;
    xcb_connection_t* c = connection.get();
    const std::vector<std::uint32_t> stacking = words(
        propertyReply(c, requestProperty(c, connection.root(),
                                         connection.atom(Atom::netClientListStacking), 1 << 16))
            .get());
    state_->check();

    struct Ask {
        xcb_window_t id;
        xcb_get_geometry_cookie_t geometry;
        xcb_translate_coordinates_cookie_t origin;
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_property_cookie_t extents, shadow, pid, netName, name, type, state, opacity;
    };
    std::vector<Ask> asks;
    // The stacking list runs bottom to top; the answer runs front to back.
    for (auto id = stacking.rbegin(); id != stacking.rend(); ++id) {
        asks.push_back({*id, xcb_get_geometry(c, *id),
                        xcb_translate_coordinates(c, *id, connection.root(), 0, 0),
                        xcb_get_window_attributes(c, *id),
                        requestProperty(c, *id, connection.atom(Atom::netFrameExtents), 4),
                        requestProperty(c, *id, connection.atom(Atom::gtkFrameExtents), 4),
                        requestProperty(c, *id, connection.atom(Atom::netWmPid), 1),
                        requestProperty(c, *id, connection.atom(Atom::netWmName), 1024),
                        requestProperty(c, *id, XCB_ATOM_WM_NAME, 1024),
                        requestProperty(c, *id, connection.atom(Atom::netWmWindowType), 32),
                        requestProperty(c, *id, connection.atom(Atom::netWmState), 32),
                        requestProperty(c, *id, connection.atom(Atom::netWmWindowOpacity), 1)});
    }
    const std::vector<std::uint32_t> ordinaryTypes{connection.atom(Atom::netWmWindowTypeNormal),
                                                   connection.atom(Atom::netWmWindowTypeDialog)};
    std::vector<DesktopWindow> windows;
    for (const Ask& ask : asks) {
        Reply<xcb_get_geometry_reply_t> geometry{xcb_get_geometry_reply(c, ask.geometry, nullptr)};
        Reply<xcb_translate_coordinates_reply_t> origin{
            xcb_translate_coordinates_reply(c, ask.origin, nullptr)};
        Reply<xcb_get_window_attributes_reply_t> attributes{
            xcb_get_window_attributes_reply(c, ask.attributes, nullptr)};
        const std::vector<std::uint32_t> extents = words(propertyReply(c, ask.extents).get());
        const std::vector<std::uint32_t> shadow = words(propertyReply(c, ask.shadow).get());
        const auto pid = firstWord(propertyReply(c, ask.pid).get());
        std::string title = text(propertyReply(c, ask.netName).get());
        std::string plainTitle = text(propertyReply(c, ask.name).get());
        const std::vector<std::uint32_t> types = words(propertyReply(c, ask.type).get());
        const std::vector<std::uint32_t> states = words(propertyReply(c, ask.state).get());
        const auto opacity = firstWord(propertyReply(c, ask.opacity).get());
        if (!geometry || !origin || !attributes) {
            continue; // gone meanwhile
        }
        DesktopWindow window;
        window.id = ask.id;
        // _NET_FRAME_EXTENTS (the window manager's decorations) widen the window;
        // _GTK_FRAME_EXTENTS (a shadow the client draws itself) narrow it. Both:
        // left, right, top, bottom.
        auto side = [](const std::vector<std::uint32_t>& values, std::size_t index) {
            return values.size() == 4 ? static_cast<double>(values[index]) : 0.0;
        };
        const double left = side(extents, 0) - side(shadow, 0);
        const double right = side(extents, 1) - side(shadow, 1);
        const double top = side(extents, 2) - side(shadow, 2);
        const double bottom = side(extents, 3) - side(shadow, 3);
        window.frame = {origin->dst_x - left, origin->dst_y - top, geometry->width + left + right,
                        geometry->height + top + bottom};
        if (pid) {
            window.pid = *pid;
        }
        window.title = title.empty() ? std::move(plainTitle) : std::move(title);
        const bool ordinary = types.empty() || holds(ordinaryTypes, types.front());
        window.layer = ordinary && attributes->override_redirect == 0 ? WindowLayer::normal
                                                                      : WindowLayer::other;
        if (opacity) {
            window.alpha = static_cast<double>(*opacity) /
                           static_cast<double>(std::numeric_limits<std::uint32_t>::max());
        }
        window.minimized = holds(states, connection.atom(Atom::netWmStateHidden));
        windows.push_back(std::move(window));
    }
    state_->check();
    return windows;
}

bool DisplaysX11::windowExists(std::uint32_t id) {
    const bool exists = x11::windowExists(state_->connection, id);
    state_->check();
    return exists;
}

std::uint32_t DisplaysX11::rootWindow() {
    return state_->connection.root();
}

} // namespace lumenvale
