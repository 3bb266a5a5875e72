#pragma once

#include "desktop/GlobalKeys.h"

namespace lumenvale {

// The global keys of a session without a display server: there is no keyboard to
// press, so every combination is taken on without ever being pressed, and the desktop
// has no shortcuts of its own. GUI thread.
class GlobalKeysNull final : public GlobalKeys {
  public:
    using GlobalKeys::GlobalKeys;
    Grab grab(std::uint32_t, Combo) override { return Grab::ok; }
    void release(std::uint32_t) override {}
    std::vector<Combo> systemShortcuts() override { return {}; }
    bool press(Combo) override { return false; }
};

} // namespace lumenvale
