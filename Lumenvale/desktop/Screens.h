#pragma once

#include "LumenvaleKit/Geometry.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {

// One display as the application sees it. Rectangles are in desktop coordinates
// (points, origin at the bottom-left of the desktop, y up), as LumenvaleKit keeps them.
struct Screen {
    std::string id;    // the RandR output name, e.g. "screen" or "HDMI-1"
    Rect frame;        // the whole display
    Rect visibleFrame; // without panels and docks
    double scale = 1;  // pixels per point
    friend bool operator==(const Screen&, const Screen&) = default;
};

} // namespace lumenvale

// The displays and windows of the desktop as the recorder needs them, asked of the
// display server each time (no caching: displays come and go). All rectangles are in
// desktop coordinates (points, origin bottom-left, y up); fromTopLeft/toTopLeft convert
// X11's top-left coordinates at the boundary, using the height of the whole desktop.
//
// Threads: the GUI thread. Each call is one short round trip to the X server.
namespace lumenvale::Screens {

// Whether the display server lets Lumenvale capture the screen (X11: MIT-SHM and
// Composite are offered).
bool captureAvailable();
// Why the screen cannot be captured, as the user's sentence (no display server, or
// one without MIT-SHM and Composite); nothing when it can.
std::optional<std::string> captureProblem();

// Every display, the primary one first. Empty without a display server.
std::vector<Screen> all();

// The display under the mouse pointer (else the primary one).
std::optional<Screen> withMouse();

// The display that holds most of `rect`; nothing when it lies on no display.
std::optional<Screen> containing(const Rect& rect);

// The frame of a managed window, decorations included; nothing when it is gone.
std::optional<Rect> windowFrame(std::uint32_t windowID);

// What an X window id names: a managed application window (the only kind a window
// recording takes), the root window (the whole desktop), another existing window (a
// child, a frame, a menu), nothing; `unknown` without a display server.
enum class WindowKind { application, root, other, missing, unknown };
WindowKind windowKind(std::uint32_t windowID);

// A window the selection overlay may offer, with its frame (decorations included).
struct PickableWindow {
    std::uint32_t id = 0;
    Rect frame;
    friend bool operator==(const PickableWindow&, const PickableWindow&) = default;
};

// The windows a window recording can take, front to back: ordinary managed windows
// (no docks, panels, desktop or menus) of other processes, not minimized or fully
// transparent, at least 40 × 40 points. Empty when the list cannot be read.
std::vector<PickableWindow> pickableWindows();

// Whether a compositing manager runs (translucent windows show as such); without one,
// translucency reads as black.
bool compositing();

// Device pixels per point of the desktop (X11 has one scale for all displays).
double scale();

// Between X11 coordinates (origin top-left of the desktop, y down) and desktop ones.
Rect fromTopLeft(const Rect& topLeft);
Rect toTopLeft(const Rect& desktop);

} // namespace lumenvale::Screens
