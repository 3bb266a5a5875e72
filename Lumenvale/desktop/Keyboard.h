#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {

// The session's keyboard as its current layout has it: what a key types, and which key
// types a given symbol. Key codes are the stored virtual key codes (KeyNames). Every
// call reads the layout afresh, so a switch of layout or group shows at once.
//
// Threads: the GUI thread. Made by Desktop::makeKeyboard(); owned by the caller.
class Keyboard {
  public:
    virtual ~Keyboard() = default;

    // The character the key types at the first level (no modifier held) of the current
    // layout group, as UTF-8: "r" for the R key of a US layout, "z" for the same key of
    // a German one. Nothing when the key types no printable character or is not on
    // this keyboard.
    virtual std::optional<std::string> character(std::int64_t keyCode) = 0;

    // For each symbol, the key that types it in the current layout group: at its first
    // level if a key does, else at any level. A symbol is an X keysym name ("l",
    // "Page_Up", "XF86AudioMute") or a single character (","). Nothing for a symbol no
    // key types, or whose key has no stored code. The layout is read once for all.
    virtual std::vector<std::optional<std::int64_t>>
    keysTyping(const std::vector<std::string>& symbols) = 0;
};

} // namespace lumenvale
