#pragma once

#include "LumenvaleKit/Shortcuts.h"
#include "desktop/Keyboard.h"

#include <vector>

// The shortcuts the desktop itself holds, so that the hotkey center can mark an action
// whose combination the desktop would take first. Read where the desktop keeps them in
// a readable form:
//   GNOME (XDG_CURRENT_DESKTOP names GNOME)  `gsettings list-recursively` of the window
//        manager's, the shell's and the media keys' schemas (defaults and the user's own)
//   KDE (XDG_CURRENT_DESKTOP names KDE)  kglobalshortcutsrc in the XDG config folder
// Any other desktop: none. GNOME's custom keybindings are not read.
//
// Threads: the GUI thread. GNOME's are read by running gsettings, which takes a few
// milliseconds per schema (at most two seconds when it hangs).
namespace lumenvale::SystemShortcuts {

enum class DesktopKind { gnome, kde, other };

// From XDG_CURRENT_DESKTOP (a colon-separated list), read afresh on every call.
DesktopKind current();

// The desktop's enabled shortcuts as combinations of the keys that type their symbols
// on `keyboard` now; a shortcut whose symbol no key types is left out. Empty when the
// desktop's settings cannot be read.
std::vector<Combo> enabled(Keyboard& keyboard);

} // namespace lumenvale::SystemShortcuts
