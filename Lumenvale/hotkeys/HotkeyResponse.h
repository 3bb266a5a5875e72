#pragma once

#include "LumenvaleKit/Shortcuts.h"
#include "recorder/RecorderPhase.h"
#include "recorder/RecorderTypes.h"

namespace lumenvale {

// What an action's hotkey asks of the recorder in each of its phases:
//
//   action   idle    selecting, countdown, finishing   recording, paused
//   screen   start   ignore                            stop
//   area     start   ignore                            stop
//   window   start   ignore                            stop
//   stop     stop    stop                              stop
//
// So a record shortcut pressed again while recording stops it, one pressed while the
// picker or the countdown is up does nothing, and Stop always asks the recorder to stop
// (which also cancels a countdown or a picker). Pure.
enum class HotkeyResponse { start, stop, ignore };

HotkeyResponse respond(RecAction action, RecorderPhase::Phase phase);

// The kind of recording a record action starts; nothing for stop.
std::optional<RecordKind> recordKind(RecAction action);

} // namespace lumenvale
