#include "hotkeys/HotkeyResponse.h"

namespace lumenvale {

HotkeyResponse respond(RecAction action, RecorderPhase::Phase phase) {
    using Phase = RecorderPhase::Phase;
    if (action == RecAction::stop || phase == Phase::recording || phase == Phase::paused) {
        return HotkeyResponse::stop;
    }
    return phase == Phase::idle ? HotkeyResponse::start : HotkeyResponse::ignore;
}

std::optional<RecordKind> recordKind(RecAction action) {
    switch (action) {
    case RecAction::screen:
        return RecordKind::screen;
    case RecAction::area:
        return RecordKind::area;
    case RecAction::window:
        return RecordKind::window;
    case RecAction::stop:
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace lumenvale
