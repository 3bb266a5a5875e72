#pragma once

#include "LumenvaleKit/Mods.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace lumenvale::KeyNames {

// Key codes are the stored virtual key codes (53 = Escape, 122 = F1, ...).

// The key code of Escape: 53.
inline constexpr std::int64_t escape = 53;

// The 27 keys whose display name wins over the layout's character.
const std::map<std::int64_t, std::string>& special();
// The key codes of F1 to F12: a function key may be a shortcut without modifiers.
const std::set<std::int64_t>& functionKeys();

// The glyph form: mods.symbols() followed by the key name ("⌃⇧R", "⌘F5", "F5").
// The key name is the special name, else `label`, else "?". The label is what the
// keyboard layout prints on the key, as the application reads it: the character the
// key types, already upper-cased (Unicode's case rules live outside the core); it is
// shown byte for byte.
std::string display(std::int64_t keyCode, Mods mods, const std::optional<std::string>& label);

// The Linux form shown in the application: "Ctrl+Alt+Shift+Super+R". Special keys
// take their Linux names ("Return", "Space", "Left", "F5", ...).
std::string linuxDisplay(std::int64_t keyCode, Mods mods, const std::optional<std::string>& label);

// The stored virtual key code of an evdev key code (X11 key code minus 8), and
// back; nothing for a key that has no stored code.
std::optional<std::int64_t> fromEvdev(int evdevCode);
std::optional<int> toEvdev(std::int64_t keyCode);

} // namespace lumenvale::KeyNames
