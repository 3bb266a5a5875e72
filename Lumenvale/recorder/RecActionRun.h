#pragma once

#include "LumenvaleKit/Shortcuts.h"

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
// stop (which also cancels a picker or a countdown). A start is asynchronous: it
// begins after the caller returns. GUI thread.
void runAction(RecAction action, ScreenRecorder& recorder);

} // namespace lumenvale
