#pragma once

#include "desktop/Keyboard.h"

namespace lumenvale {

// The keyboard of a session without a display server: it has no layout to read, so no
// key types anything. GUI thread.
class KeyboardNull final : public Keyboard {
  public:
    std::optional<std::string> character(std::int64_t) override { return std::nullopt; }
    std::vector<std::optional<std::int64_t>>
    keysTyping(const std::vector<std::string>& symbols) override {
        return std::vector<std::optional<std::int64_t>>(symbols.size());
    }
};

} // namespace lumenvale
