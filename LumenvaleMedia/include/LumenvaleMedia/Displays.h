#pragma once

#include "LumenvaleKit/Geometry.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {

// Geometry here is in desktop pixels as the display server counts them: origin at
// the top-left corner of the whole desktop, y down. (The application converts to
// its bottom-left, point-based desktop space at its own boundary.)

// One display.
struct DisplayScreen {
    // The output's name, e.g. "HDMI-1" (Xvfb: "screen"); stays the same while the
    // display is connected, so a capture can follow it.
    std::string id;
    Rect frame;
    // Device pixels per point: what the toolkit scales the desktop by
    // (X11: Xft.dpi / 96, times QT_SCALE_FACTOR; 1 when neither is set).
    double scale = 1;
    bool primary = false;
    friend bool operator==(const DisplayScreen&, const DisplayScreen&) = default;
};

// How a window sits on the desktop: `normal` is an ordinary managed application
// window; `other` covers docks, panels, the desktop, menus and the like.
enum class WindowLayer { normal, other };

// One top-level application window.
struct DesktopWindow {
    // The client window's X id: what a window capture takes.
    std::uint32_t id = 0;
    // The window including the window manager's frame and title bar, without the
    // shadow a client-side-decorated window draws around itself.
    Rect frame;
    // The owning process (_NET_WM_PID), when the window says.
    std::optional<std::int64_t> pid;
    std::string title;
    WindowLayer layer = WindowLayer::normal;
    // Opacity from 0 to 1 (_NET_WM_WINDOW_OPACITY), 1 when unset.
    double alpha = 1;
    // Minimized (hidden) windows are listed but show nothing on screen.
    bool minimized = false;
    friend bool operator==(const DesktopWindow&, const DesktopWindow&) = default;
};

struct DesktopPoint {
    double x = 0;
    double y = 0;
    friend bool operator==(const DesktopPoint&, const DesktopPoint&) = default;
};

// What the desktop holds right now: displays, the pointer and the windows.
//
// Threads: an instance is used by one thread at a time (any thread); each call asks
// the display server afresh and returns values the caller owns. Calls throw
// MediaError "The display is gone." when the connection to the display is lost.
class Displays {
  public:
    virtual ~Displays() = default;

    // True when screens can be captured here (X11: the display offers MIT-SHM and
    // Composite).
    virtual bool captureAvailable() = 0;
    // Every active display, the primary one first.
    virtual std::vector<DisplayScreen> screens() = 0;
    // The display under the pointer (where displays overlap, the smallest); when
    // the pointer is in a gap between displays, the primary one. Absent only when
    // there are no displays.
    virtual std::optional<DisplayScreen> screenUnderPointer() = 0;
    virtual DesktopPoint pointer() = 0;
    // The managed windows, front to back (the window manager's stacking order).
    virtual std::vector<DesktopWindow> windows() = 0;
    // Whether the window `id` still exists.
    virtual bool windowExists(std::uint32_t id) = 0;
    // The root window: the whole desktop, the parent of every top-level window.
    virtual std::uint32_t rootWindow() = 0;
};

} // namespace lumenvale
