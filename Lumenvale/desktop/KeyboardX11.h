#pragma once

#include "desktop/Keyboard.h"
#include "desktop/XcbHandles.h"

namespace lumenvale {

// The keyboard of the X display named by DISPLAY, read through xkbcommon: each call
// fetches the server's keymap and state (the current group) on the keyboard's own
// connection, which is opened at the first call. A display that cannot be reached, or
// that lacks the XKB extension, has no layout: every answer is nothing. X11 key codes
// are evdev codes + 8, which KeyNames maps to the stored codes. GUI thread.
class KeyboardX11 final : public Keyboard {
  public:
    std::optional<std::string> character(std::int64_t keyCode) override;
    std::vector<std::optional<std::int64_t>>
    keysTyping(const std::vector<std::string>& symbols) override;

  private:
    struct Layout {
        x11::XkbKeymap keymap;
        x11::XkbState state;
    };
    // The keymap and state now; nothing when the display cannot give them.
    std::optional<Layout> current();

    x11::Connection connection_;
    x11::XkbContext context_;
    std::int32_t device_ = -1;
};

} // namespace lumenvale
