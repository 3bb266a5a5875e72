#include "recorder/RecActionRun.h"

#include "recorder/ScreenRecorder.h"

namespace lumenvale {

ActionResponse respond(RecAction action, RecorderPhase::Phase phase) {
    using Phase = RecorderPhase::Phase;
    if (action == RecAction::stop || phase == Phase::recording || phase == Phase::paused) {
        return ActionResponse::stop;
    }
    return phase == Phase::idle ? ActionResponse::start : ActionResponse::ignore;
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

void runAction(RecAction action, ScreenRecorder& recorder) {
    switch (respond(action, recorder.phase())) {
    case ActionResponse::start:
        if (const std::optional<RecordKind> kind = recordKind(action)) {
            recorder.record(*kind);
        }
        return;
    case ActionResponse::stop:
        recorder.stop();
        return;
    case ActionResponse::ignore:
        return;
    }
}

} // namespace lumenvale
