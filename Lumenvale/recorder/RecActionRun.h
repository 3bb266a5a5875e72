#pragma once

#include "LumenvaleKit/Shortcuts.h"
#include "recorder/RecorderPhase.h"
#include "recorder/RecorderTypes.h"

#include <optional>

namespace lumenvale {

class ScreenRecorder;

// What an action does, however it arrives (a global shortcut, `lumenvale screen`
// from a compositor's key binding, a desktop's action call), against the recorder's
// phase:
//
//   action               idle              selecting, countdown,   recording, paused
//                                          finishing
//   screen/area/window   start that kind   ignored                 stop
//   stop                 stop              stop                    stop
//
// So a record shortcut pressed again while recording stops it, one pressed while the
// picker or the countdown is up does nothing, and stop always asks the recorder to
// stop (which also cancels a picker or a countdown).
enum class ActionResponse { start, stop, ignore };

// The table above. Pure.
ActionResponse respond(RecAction action, RecorderPhase::Phase phase);

// The kind of recording a record action starts; nothing for stop. Pure.
std::optional<RecordKind> recordKind(RecAction action);

// Does what the table says against `recorder`'s phase now. A start is asynchronous: it
// begins after the caller returns. GUI thread.
void runAction(RecAction action, ScreenRecorder& recorder);

} // namespace lumenvale
