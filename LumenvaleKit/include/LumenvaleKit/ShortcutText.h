#pragma once

#include "LumenvaleKit/Mods.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Shortcuts as desktops write them in their settings, read into the modifiers and the
// name of the key. Which physical key a name means depends on the keyboard layout, so
// the caller resolves it: the name is an X keysym name ("l", "F4", "Page_Up",
// "XF86AudioMute") or a single character (",").
//
// Modifiers read as control (Ctrl, Primary), option (Alt, Mod1), shift and command
// (Super, Mod4, and KDE's Meta). A shortcut that needs a modifier the application
// cannot hold (GNOME's Meta or Hyper, a key-release binding, KDE's keypad marker)
// reads as nothing. Pure; never throws.
namespace lumenvale::ShortcutText {

struct Binding {
    Mods mods;
    std::string key;
    friend bool operator==(const Binding&, const Binding&) = default;
};

// One GNOME (GTK) accelerator: "<Super>l", "<Primary><Shift>Page_Up", "<Alt>F4".
// Nothing for "", "disabled" or a text without a key. GNOME's "Above_Tab" (the key
// above Tab, whatever it types) reads as "grave", the key it is on common layouts.
std::optional<Binding> fromGnome(std::string_view accelerator);

// The output of `gsettings list-recursively SCHEMA`: lines "schema key value", where
// the value is a string ('<Super>l') or an array of strings (['<Alt>F4', '<Super>q'],
// @as []). Every accelerator of every such value, in order; other values are skipped.
std::vector<Binding> fromGsettingsListing(std::string_view listing);

// One Qt key sequence as KDE writes it: "Meta+L", "Ctrl+Alt+Del", "Alt+F4", "Ctrl++".
// Letters come back in lower case (the key's first level), Qt's names of other keys as
// keysym names ("Del" as "Delete", "PgUp" as "Prior", "Volume Up" as
// "XF86AudioRaiseVolume"). Nothing for "", "none" or a sequence of several chords.
std::optional<Binding> fromKde(std::string_view sequence);

// The text of KDE's kglobalshortcutsrc: "[component]" sections of lines
// "Action=active,default,title", where the active shortcuts are separated by tabs
// (written as "\t") and "none" means none. Every active shortcut, in order.
std::vector<Binding> fromKdeGlobalShortcuts(std::string_view file);

} // namespace lumenvale::ShortcutText
