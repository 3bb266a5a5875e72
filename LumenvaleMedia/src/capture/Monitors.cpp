#include "capture/Monitors.h"

#include <algorithm>
#include <xcb/randr.h>

namespace lumenvale::x11 {

std::vector<Monitor> queryMonitors(const XConnection& connection) {
    xcb_connection_t* c = connection.get();
    std::vector<Monitor> monitors;
    if (!connection.extensions().randr) {
        const PixelRect root = rootRect(connection);
        if (!root.empty()) {
            monitors.push_back({"default", root, true});
        }
        return monitors;
    }
    Reply<xcb_randr_get_monitors_reply_t> reply{
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection.root(), 1), nullptr)};
    if (!reply) {
        return monitors;
    }
    std::vector<xcb_get_atom_name_cookie_t> names;
    for (xcb_randr_monitor_info_iterator_t it =
             xcb_randr_get_monitors_monitors_iterator(reply.get());
         it.rem > 0; xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t& info = *it.data;
        monitors.push_back({{}, {info.x, info.y, info.width, info.height}, info.primary != 0});
        names.push_back(xcb_get_atom_name(c, info.name));
    }
    for (std::size_t index = 0; index < names.size(); ++index) {
        Reply<xcb_get_atom_name_reply_t> name{xcb_get_atom_name_reply(c, names[index], nullptr)};
        if (name) {
            monitors[index].name.assign(
                xcb_get_atom_name_name(name.get()),
                static_cast<std::size_t>(xcb_get_atom_name_name_length(name.get())));
        }
    }
    // Without a primary output (Xvfb, some setups) the display at the desktop's
    // origin is the main one, as toolkits take it.
    if (std::none_of(monitors.begin(), monitors.end(),
                     [](const Monitor& monitor) { return monitor.primary; }) &&
        !monitors.empty()) {
        auto origin = std::find_if(monitors.begin(), monitors.end(), [](const Monitor& monitor) {
            return monitor.rect.contains(0, 0);
        });
        (origin == monitors.end() ? monitors.front() : *origin).primary = true;
    }
    // The primary first, the others left to right, top to bottom.
    std::sort(monitors.begin(), monitors.end(), [](const Monitor& a, const Monitor& b) {
        if (a.primary != b.primary) {
            return a.primary;
        }
        return a.rect.x != b.rect.x ? a.rect.x < b.rect.x : a.rect.y < b.rect.y;
    });
    return monitors;
}

std::optional<Monitor> monitorAt(const std::vector<Monitor>& monitors, std::int64_t x,
                                 std::int64_t y) {
    const Monitor* best = nullptr;
    for (const Monitor& monitor : monitors) {
        if (monitor.rect.contains(x, y) &&
            (best == nullptr ||
             monitor.rect.width * monitor.rect.height < best->rect.width * best->rect.height)) {
            best = &monitor;
        }
    }
    if (best == nullptr && !monitors.empty()) {
        best = &monitors.front();
    }
    return best == nullptr ? std::nullopt : std::optional(*best);
}

PixelRect rootRect(const XConnection& connection) {
    xcb_connection_t* c = connection.get();
    Reply<xcb_get_geometry_reply_t> geometry{
        xcb_get_geometry_reply(c, xcb_get_geometry(c, connection.root()), nullptr)};
    if (!geometry) {
        return {};
    }
    return {0, 0, geometry->width, geometry->height};
}

} // namespace lumenvale::x11
