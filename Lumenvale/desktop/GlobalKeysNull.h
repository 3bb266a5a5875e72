#pragma once

#include "desktop/GlobalKeys.h"

namespace lumenvale {

// The global keys of a desktop that gives none: a session without a display server,
// where there is no keyboard to press, or a Wayland desktop without the GlobalShortcuts
// portal (`notOffered`). Every combination is taken on without ever being pressed, and
// the desktop has no shortcuts of its own. GUI thread.
class GlobalKeysNull final : public GlobalKeys {
  public:
    explicit GlobalKeysNull(Support support, QObject* parent = nullptr)
        : GlobalKeys(parent), support_(support) {}
    Support support() const override { return support_; }
    Grab grab(std::uint32_t, Combo) override { return Grab::ok; }
    void release(std::uint32_t) override {}
    std::vector<Combo> systemShortcuts() override { return {}; }
    bool press(Combo) override { return false; }

  private:
    Support support_;
};

} // namespace lumenvale
