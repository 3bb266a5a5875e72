#pragma once

#include "LumenvaleKit/Shortcuts.h"

#include <QObject>
#include <cstdint>
#include <vector>

namespace lumenvale {

// Keyboard shortcuts that work for the whole session, whichever application is in
// front: the seam between the hotkey center and the desktop (X11 key grabs, or the
// desktop portal's GlobalShortcuts on Wayland). A combination is held under a small
// numeric id of the caller's choosing; pressing it emits pressed(id).
//
// Threads: made, used and observed on the GUI thread; pressed() is emitted there,
// from the event loop, never from inside a call of this interface. Made by
// Desktop::makeGlobalKeys(); owned by the caller.
class GlobalKeys : public QObject {
    Q_OBJECT

  public:
    enum class Grab {
        ok,    // the combination is held under the id until released
        inUse, // another application holds it (or it cannot be held at all: a key that
               // is not on this keyboard, a display that went away); nothing is held
    };

    // Whether the desktop lets an application hold shortcuts at all. Where it does
    // not (a Wayland desktop whose portal lacks GlobalShortcuts), every grab is taken
    // on and never pressed, and the user binds Lumenvale's commands in the desktop's
    // own keyboard settings instead.
    enum class Support { offered, notOffered };

    using QObject::QObject;

    virtual Support support() const { return Support::offered; }

    // Holds `combo` under `id`, in place of whatever `id` held before. A combination
    // that this object already holds under another id counts as in use.
    virtual Grab grab(std::uint32_t id, Combo combo) = 0;
    // Lets go of what `id` holds; nothing when it holds nothing. Once it returns,
    // another application may take the combination.
    virtual void release(std::uint32_t id) = 0;

    // The desktop's own shortcuts that are enabled now (GNOME's or KDE's bindings
    // where readable); empty when there are none or they cannot be read.
    virtual std::vector<Combo> systemShortcuts() = 0;

    // Presses and releases `combo` as if the user typed it on the keyboard (the
    // modifiers first), so that whoever holds it gets it; for the self-test. False when
    // this desktop cannot make key presses.
    virtual bool press(Combo combo) = 0;

  signals:
    void pressed(std::uint32_t id);
};

} // namespace lumenvale
