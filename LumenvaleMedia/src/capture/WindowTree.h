#pragma once

// Walking the window tree. Internal to LumenvaleMedia.

#include "capture/XConnection.h"

#include <optional>

namespace lumenvale::x11 {

// The child of the root that holds `window` (its window-manager frame, or the
// window itself when it is unmanaged). Nothing when the window does not exist.
std::optional<xcb_window_t> topLevelOf(const XConnection& connection, xcb_window_t window);

// Whether `window` exists. One round trip.
bool windowExists(const XConnection& connection, xcb_window_t window);

} // namespace lumenvale::x11
