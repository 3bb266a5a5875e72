#pragma once

// The displays of an X screen: RandR monitors (one per active output, plus any the
// user defined), read in one query. Internal to LumenvaleMedia.

#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <optional>
#include <string>
#include <vector>

namespace lumenvale::x11 {

struct Monitor {
    std::string name; // the output's (or user-defined monitor's) name
    PixelRect rect;
    bool primary = false;
};

// The active monitors: the primary one first (when no output is marked primary, the
// one at the desktop's origin), then left to right. Without RandR 1.5 the whole X
// screen is one monitor named "default". Empty when the connection failed.
std::vector<Monitor> queryMonitors(const XConnection& connection);

// The monitor showing root position (x, y): where monitors overlap (a small one
// inside a large one), the smallest; when none does, the primary (the first).
// Nothing only when `monitors` is empty.
std::optional<Monitor> monitorAt(const std::vector<Monitor>& monitors, std::int64_t x,
                                 std::int64_t y);

// The size of the X screen (the root window) as the server reports it now.
PixelRect rootRect(const XConnection& connection);

} // namespace lumenvale::x11
