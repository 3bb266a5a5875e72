#pragma once

// Another X client on the session's display, holding key grabs as another application
// would, and pressing keys with xdotool as the user would.

#include "../AppTestSupport.h"
#include "desktop/XcbHandles.h"

#include <cstdint>

namespace lumenvale::testing {

// X modifier masks of the session's keymap.
constexpr std::uint16_t shiftMask = 1, lockMask = 2, controlMask = 4, mod1Mask = 8,
                        numLockMask = 16, mod4Mask = 64;

class OtherXClient {
  public:
    OtherXClient() : connection_(xcb_connect(nullptr, nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data->root;
    }

    // Grabs the X key code with exactly these modifiers; false when another client
    // holds that grab.
    bool grab(std::uint8_t key, std::uint16_t modifiers) {
        const auto cookie = xcb_grab_key_checked(connection_.get(), 0, root_, modifiers, key,
                                                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        return x11::Error(xcb_request_check(connection_.get(), cookie)) == nullptr;
    }

    void ungrab(std::uint8_t key, std::uint16_t modifiers) {
        xcb_ungrab_key(connection_.get(), key, root_, modifiers);
        sync();
    }

    // Whether some other client holds the grab (tried, and let go of again at once).
    bool heldElsewhere(std::uint8_t key, std::uint16_t modifiers) {
        if (!grab(key, modifiers)) {
            return true;
        }
        ungrab(key, modifiers);
        return false;
    }

  private:
    void sync() {
        x11::Reply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(
            connection_.get(), xcb_get_input_focus(connection_.get()), nullptr));
    }

    x11::Connection connection_;
    xcb_window_t root_ = 0;
};

// `xdotool key KEYS...`: each argument one press and release ("ctrl+alt+r").
inline void pressKeys(const QStringList& keys) {
    xdotool(QStringList{QStringLiteral("key")} + keys);
}

} // namespace lumenvale::testing
