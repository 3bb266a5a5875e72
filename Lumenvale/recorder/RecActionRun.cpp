#include "recorder/RecActionRun.h"

#include "recorder/ScreenRecorder.h"

namespace lumenvale {

namespace {

RecordKind kindOf(RecAction action) {
    switch (action) {
    case RecAction::area:
        return RecordKind::area;
    case RecAction::window:
        return RecordKind::window;
    case RecAction::screen:
    case RecAction::stop:
        break;
    }
    return RecordKind::screen;
}

} // namespace

void runAction(RecAction action, ScreenRecorder& recorder) {
    using Phase = RecorderPhase::Phase;
    if (action == RecAction::stop) {
        recorder.stop();
        return;
    }
    switch (recorder.phase()) {
    case Phase::idle:
        recorder.record(kindOf(action));
        return;
    case Phase::recording:
    case Phase::paused:
        recorder.stop();
        return;
    case Phase::selecting:
    case Phase::countdown:
    case Phase::finishing:
        return;
    }
}

} // namespace lumenvale
