#include "gui/tray/TrayMenu.h"

#include <array>

namespace lumenvale::TrayMenu {

using Phase = RecorderPhase::Phase;

std::span<const Entry> entries() {
    static constexpr std::array<Entry, 4> menu{{
        {Action::recordScreen, "Record Screen"},
        {Action::stop, "Stop Recording"},
        {std::nullopt, ""},
        {Action::quit, "Quit Lumenvale"},
    }};
    return menu;
}

bool enabled(Action action, Phase phase) {
    switch (action) {
    case Action::recordScreen:
        return phase == Phase::idle;
    case Action::stop:
        return phase != Phase::idle && phase != Phase::finishing;
    case Action::quit:
        return true;
    }
    return false;
}

bool showsRecording(Phase phase) {
    return phase == Phase::recording;
}

} // namespace lumenvale::TrayMenu
