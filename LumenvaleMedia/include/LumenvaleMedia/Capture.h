#pragma once

#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/PixelSize.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace lumenvale {

// What a capture shows. Coordinates are desktop pixels (origin top-left of the
// whole desktop, y down), as Displays reports them.

// A whole display, followed while it exists (it may be moved or change resolution;
// the picture is then scaled into the movie). `id` is a DisplayScreen::id; absent
// means the display under the pointer when the capture starts (as
// Displays::screenUnderPointer chooses it).
struct CaptureScreen {
    std::optional<std::string> id;
};

// A fixed rectangle of the desktop. Fractional edges are rounded outward to whole
// pixels; the part outside the desktop is black.
struct CaptureArea {
    Rect rect;
};

// One window (a DesktopWindow::id), with its window-manager frame, wherever it
// moves and even while other windows cover it; no shadow. When it is resized, its
// picture is scaled to fit the movie, centred on black.
struct CaptureWindow {
    std::uint32_t id = 0;
};

// A window the user picks in the desktop's own dialog when the capture starts: a
// Wayland desktop names no windows to applications. Only the portal capture takes it.
struct CaptureChosenWindow {};

using CaptureTarget = std::variant<CaptureScreen, CaptureArea, CaptureWindow, CaptureChosenWindow>;

// Whether a screen or area capture shows this process's own windows (its panels,
// outline, countdown, card). Window captures ignore this.
enum class OwnWindows {
    // Never shown, except `keptWindows`. Windows count as this process's own when
    // their _NET_WM_PID is this process, or the display server says that the
    // connection that made them belongs to this process (X-Resource).
    hidden,
    // Shown like any other window.
    shown,
};

struct CaptureRequest {
    CaptureTarget target = CaptureScreen{};
    // Frames per second; at least 1.
    int fps = 30;
    // The movie's pixel size (OutputSize::pixels of the target's size in points);
    // every frame has this size whatever the target does later.
    PixelSize size;
    // Draw the mouse pointer into the frames.
    bool showsPointer = true;
    // Draw a short fading ring where the primary, middle or secondary button is pressed.
    bool showsClicks = false;
    OwnWindows ownWindows = OwnWindows::hidden;
    // Own windows that appear all the same (the camera bubble): X ids of client or
    // frame windows.
    std::vector<std::uint32_t> keptWindows;
};

} // namespace lumenvale
