#include "capture/DamageWatch.h"

#include <xcb/damage.h>

namespace lumenvale::x11 {
namespace {

xcb_void_cookie_t destroyDamage(xcb_connection_t* c, std::uint32_t id) {
    return xcb_damage_destroy(c, id);
}
xcb_void_cookie_t destroyRegion(xcb_connection_t* c, std::uint32_t id) {
    return xcb_xfixes_destroy_region(c, id);
}

} // namespace

DamageWatch::DamageWatch(const XConnection& connection)
    : connection_(connection), available_(connection.extensions().damage) {
    if (available_) {
        const std::uint32_t region = connection.generateID();
        xcb_xfixes_create_region(connection.get(), region, 0, nullptr);
        region_ = ServerResource(connection.get(), region, destroyRegion);
    }
}

void DamageWatch::watch(xcb_drawable_t drawable) {
    if (!available_) {
        return;
    }
    damage_.reset();
    drawable_ = drawable;
    // One event when the area stops being empty, not one per drawing: the frame
    // asks for the area itself.
    const std::uint32_t damage = connection_.generateID();
    xcb_damage_create(connection_.get(), damage, drawable, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    damage_ = ServerResource(connection_.get(), damage, destroyDamage);
    pending_ = true;
}

void DamageWatch::observe(const xcb_generic_event_t& event) {
    if (!available_ || (event.response_type & 0x7f) !=
                           connection_.extensions().damageFirstEvent + XCB_DAMAGE_NOTIFY) {
        return;
    }
    const auto& notify = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
    if (notify.damage == damage_.id()) {
        pending_ = true;
    }
}

void DamageWatch::request() {
    requested_ = available_ && damage_;
    pending_ = false;
    if (requested_) {
        xcb_damage_subtract(connection_.get(), damage_.id(), XCB_NONE, region_.id());
        cookie_ = xcb_xfixes_fetch_region(connection_.get(), region_.id());
    }
}

std::optional<std::vector<PixelRect>> DamageWatch::wait() {
    if (!requested_) {
        return std::nullopt;
    }
    requested_ = false;
    Reply<xcb_xfixes_fetch_region_reply_t> reply{
        xcb_xfixes_fetch_region_reply(connection_.get(), cookie_, nullptr)};
    if (!reply) {
        return std::nullopt;
    }
    const xcb_rectangle_t* rectangles = xcb_xfixes_fetch_region_rectangles(reply.get());
    const int count = xcb_xfixes_fetch_region_rectangles_length(reply.get());
    std::vector<PixelRect> changed;
    changed.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        const xcb_rectangle_t& rectangle = rectangles[index];
        changed.push_back({rectangle.x, rectangle.y, rectangle.width, rectangle.height});
    }
    return changed;
}

} // namespace lumenvale::x11
