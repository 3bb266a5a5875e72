#pragma once

#include "LumenvaleKit/Mods.h"
#include "LumenvaleKit/Result.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumenvale {

// A stored shortcut: a key code and its modifiers.
struct Combo {
    std::int64_t keyCode = 0;
    Mods mods;
    friend bool operator==(const Combo&, const Combo&) = default;
};

// {"keyCode": <integer>, "mods": <integer raw value>}.
std::string encode(const Combo& combo);
// Both keys required, both integers (a whole float such as 5.0 counts); anything
// else fails. Never throws.
Result<Combo> decodeCombo(std::string_view json);

// The four actions a shortcut can trigger, in this order. The position in the
// order is the action's hotkey identifier and must not change.
enum class RecAction { screen, area, window, stop };

inline constexpr std::array<RecAction, 4> allRecActions{RecAction::screen, RecAction::area,
                                                        RecAction::window, RecAction::stop};

// "screen", "area", "window", "stop".
std::string_view rawValue(RecAction action);
// Exactly one of the four raw values; nothing for any other text.
std::optional<RecAction> recActionFromRawValue(std::string_view raw);
// "Record Screen", "Record Area", "Record Window", "Stop Recording".
std::string_view title(RecAction action);
// 0 ... 3.
int hotkeyID(RecAction action);
// The action whose hotkeyID() is `id`; nothing for any other id.
std::optional<RecAction> recActionFromHotkeyID(std::int64_t id);
// "hotkey." followed by the raw value.
std::string storageKey(RecAction action);

} // namespace lumenvale
