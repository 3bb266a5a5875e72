#pragma once

#include "LumenvaleMedia/Displays.h"

namespace lumenvale {

// The desktop of a session without a display server: no screens, no pointer, no
// windows, and nothing can be captured. Any thread.
class DisplaysNull final : public Displays {
  public:
    bool captureAvailable() override { return false; }
    std::vector<DisplayScreen> screens() override { return {}; }
    std::optional<DisplayScreen> screenUnderPointer() override { return std::nullopt; }
    DesktopPoint pointer() override { return {}; }
    std::vector<DesktopWindow> windows() override { return {}; }
    bool windowExists(std::uint32_t) override { return false; }
    std::uint32_t rootWindow() override { return 0; } // no desktop, so no root window
};

} // namespace lumenvale
