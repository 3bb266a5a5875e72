#pragma once

#include "LumenvaleMedia/Displays.h"

namespace lumenvale {

// The displays of a Wayland desktop (the compositor's outputs), asked afresh on a
// connection of its own at each call to the compositor named by WAYLAND_DISPLAY.
//
// Wayland tells a client neither where the pointer is nor which windows others
// have: pointer() is the origin, screenUnderPointer() the first output, and no
// windows are listed (window recordings are not offered). An output's frame is its
// place in the compositor's layout with its size in pixels; its scale is the
// compositor's scale for it. The first output counts as the primary one.
//
// Threads: as Displays. Calls throw MediaError "The display is gone." when the
// compositor cannot be reached.
class DisplaysWayland final : public Displays {
  public:
    // True when the compositor has an output; whether the desktop lets this process
    // record it is only known when a capture asks (CapturePortal::start()).
    bool captureAvailable() override;
    std::vector<DisplayScreen> screens() override;
    std::optional<DisplayScreen> screenUnderPointer() override;
    DesktopPoint pointer() override { return {}; }
    std::vector<DesktopWindow> windows() override { return {}; }
    bool windowExists(std::uint32_t) override { return false; }
    std::uint32_t rootWindow() override { return 0; } // Wayland has no root window
};

} // namespace lumenvale
