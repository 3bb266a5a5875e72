#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lumenvale::KeyboardLayout {

// What the key shows in the current layout of the session's keyboard: labelOf() the
// character it types with no modifier held ("R" for the R key of a US layout); nothing
// when it types none or the session has no keyboard layout to read. Read afresh on
// every call, so a layout switch shows at the next redraw. What KeyNames shows for keys
// without a special name. GUI thread.
std::optional<std::string> label(std::int64_t keyCode);

// The label of a key typing `character` (UTF-8), as a keycap prints it: upper-cased by
// Unicode's full case rules ("ș" → "Ș", "ա" → "Ա"). A character whose upper case is
// more than one character ("ß" → "SS") is shown as typed: a key is one character on
// its cap (German keyboards print ß), and "Ctrl+SS" would read as a chord of two keys.
std::string labelOf(const std::string& character);

} // namespace lumenvale::KeyboardLayout
