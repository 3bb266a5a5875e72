#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lumenvale::KeyboardLayout {

// The character the key types in the current layout of the session's keyboard, with
// no modifier held, as UTF-8 ("r" for the R key of a US layout); nothing when it types
// none or the session has no keyboard layout to read. Read afresh on every call, so a
// layout switch shows at the next redraw. What KeyNames shows for keys without a
// special name. GUI thread.
std::optional<std::string> character(std::int64_t keyCode);

} // namespace lumenvale::KeyboardLayout
