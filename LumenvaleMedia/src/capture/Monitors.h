#pragma once

// The displays of an X screen: RandR monitors (one per active output, plus any the
// user defined), read in one query. Internal to LumenvaleMedia.

#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <string>
#include <vector>

namespace lumenvale::x11 {

struct Monitor {
    std::string name; // the output's (or user-defined monitor's) name
    PixelRect rect;
    bool primary = false;
};

// The active monitors, the primary one first. Without RandR 1.5 the whole X screen
// is one monitor named "default". Empty when the connection failed.
std::vector<Monitor> queryMonitors(const XConnection& connection);

// The size of the X screen (the root window) as the server reports it now.
PixelRect rootRect(const XConnection& connection);

} // namespace lumenvale::x11
