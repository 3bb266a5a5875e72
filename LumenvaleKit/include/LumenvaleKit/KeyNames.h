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
// The key name is the special name, else the character upper-cased, else "?".
// Upper-casing covers the letters keyboard layouts print: ASCII, Latin-1 (ß becomes
// "SS", ÿ becomes Ÿ), Latin Extended-A, basic Greek (with tonos; ς becomes Σ) and
// Cyrillic; any other character, and bytes that are not UTF-8, are shown as given.
std::string display(std::int64_t keyCode, Mods mods, const std::optional<std::string>& character);

// The Linux form shown in the application: "Ctrl+Alt+Shift+Super+R". Special keys
// take their Linux names ("Return", "Space", "Left", "F5", ...).
std::string linuxDisplay(std::int64_t keyCode, Mods mods,
                         const std::optional<std::string>& character);

// The stored virtual key code of an evdev key code (X11 key code minus 8), and
// back; nothing for a key that has no stored code.
std::optional<std::int64_t> fromEvdev(int evdevCode);
std::optional<int> toEvdev(std::int64_t keyCode);

} // namespace lumenvale::KeyNames
