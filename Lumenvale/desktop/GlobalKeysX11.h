#pragma once

#include "desktop/GlobalKeys.h"
#include "desktop/Keyboard.h"
#include "desktop/XcbHandles.h"

#include <QSocketNotifier>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace lumenvale {

// Global keys on the X display named by DISPLAY, through its own xcb connection
// (opened when made): a combination is a passive key grab on the root window, made
// once for each state of Num Lock and Caps Lock so that the locks do not change what
// a press means. The server refuses a grab that another client holds (BadAccess):
// then nothing of the combination is held and grab() answers inUse. Presses arrive
// through a socket notifier on the GUI thread; a key held down fires once, however
// long the keyboard repeats it. Modifiers: control = Control, option = Mod1 (Alt),
// shift = Shift, command = Mod4 (Super). The desktop's own shortcuts are read by
// SystemShortcuts and resolved on `keyboard`. GUI thread.
class GlobalKeysX11 final : public GlobalKeys {
  public:
    explicit GlobalKeysX11(std::unique_ptr<Keyboard> keyboard, QObject* parent = nullptr);
    ~GlobalKeysX11() override;

    Grab grab(std::uint32_t id, Combo combo) override;
    void release(std::uint32_t id) override;
    std::vector<Combo> systemShortcuts() override;
    // Through the XTest extension, on the core keyboard.
    bool press(Combo combo) override;

  private:
    struct Held {
        xcb_keycode_t key = 0;
        std::uint16_t modifiers = 0;
        std::vector<std::uint16_t> variants; // the modifier states grabbed
    };

    bool connected() const;
    // The modifier bit that Num Lock sets now (usually Mod2); 0 when no key is Num Lock.
    std::uint16_t numLockMask();
    // Grabs every variant of `held`; when the server refuses one, lets go of the others
    // and answers false.
    bool grabVariants(const Held& held);
    // Lets go of every variant of `held` and waits until the server has.
    void ungrabVariants(const Held& held);
    // Hands every event xcb has read to handle(); after requests whose replies may have
    // brought events along, it runs from the event loop.
    void drain();
    void scheduleDrain();
    void handle(const xcb_generic_event_t& event);

    std::unique_ptr<Keyboard> keyboard_;
    x11::Connection connection_;
    xcb_window_t root_ = 0;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::map<std::uint32_t, Held> held_;
    std::set<xcb_keycode_t> down_; // grabbed keys pressed and not yet released
    bool drainScheduled_ = false;
};

} // namespace lumenvale
