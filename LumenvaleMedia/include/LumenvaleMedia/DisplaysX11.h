#pragma once

#include "LumenvaleMedia/Displays.h"

#include <memory>

namespace lumenvale {

// Displays on an X11 display server: RandR monitors, the EWMH window list
// (_NET_CLIENT_LIST_STACKING, frames from _NET_FRAME_EXTENTS, owners from
// _NET_WM_PID), the pointer from the core protocol.
//
// Threads: as Displays. Owns its own connection to the display named by DISPLAY.
class DisplaysX11 final : public Displays {
  public:
    // Connects; throws MediaError when there is no X display.
    DisplaysX11();
    ~DisplaysX11() override;

    bool captureAvailable() override;
    std::vector<DisplayScreen> screens() override;
    std::optional<DisplayScreen> screenUnderPointer() override;
    DesktopPoint pointer() override;
    std::vector<DesktopWindow> windows() override;
    bool windowExists(std::uint32_t id) override;
    std::uint32_t rootWindow() override;

  private:
    class State;
    std::unique_ptr<State> state_;
};

} // namespace lumenvale
