#pragma once

// Where a drawable changed, from the X DAMAGE extension: the server gathers the
// changed area, tells once when it stops being empty, and hands it over (emptying it)
// on request, so a frame reads and converts only what changed and nothing at all
// when nothing did. Damage on a window includes its children's drawing. Internal to
// LumenvaleMedia.

#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <optional>
#include <vector>
#include <xcb/xfixes.h>

namespace lumenvale::x11 {

class DamageWatch {
  public:
    // Usable when the display offers DAMAGE; otherwise every frame counts as changed.
    explicit DamageWatch(const XConnection& connection);

    bool available() const { return available_; }
    // The drawable watched, XCB_NONE before watch().
    xcb_drawable_t drawable() const { return drawable_; }
    // Watches `drawable` from now on instead of the one before. What it showed
    // before counts as unknown: the caller reads it whole once.
    void watch(xcb_drawable_t drawable);

    // Takes note of the events that say the watched drawable changed.
    void observe(const xcb_generic_event_t& event);
    // True when the drawable changed since the last request().
    bool pending() const { return pending_; }
    // Sends the requests that take the changed area (and empty it on the server).
    // Anything drawn after them is reported for the next frame.
    void request();
    // Receives it: rectangles in the drawable's coordinates, or nothing when it
    // could not be read (the drawable is gone), so everything counts as changed.
    std::optional<std::vector<PixelRect>> wait();

  private:
    const XConnection& connection_;
    bool available_ = false;
    xcb_drawable_t drawable_ = XCB_NONE;
    ServerResource damage_;
    ServerResource region_; // where the changed area is handed over
    bool pending_ = false;
    bool requested_ = false;
    xcb_xfixes_fetch_region_cookie_t cookie_{};
};

} // namespace lumenvale::x11
