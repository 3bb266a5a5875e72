#pragma once

#include "gui/instance/LaunchRequest.h"

namespace lumenvale::TrayApp {

// The tray application: start-up (permissions, crash recovery, the shared recorder,
// the global shortcuts) and an icon in the system tray whose menu records the screen, stops and
// quits. It is the session's one Lumenvale (AppInstance): when another already runs, `request` goes
// to that one and this returns 0 once it was taken (1 when it was not, saying why on standard
// error) without showing anything. Otherwise the application starts, does `request`, and does the
// requests of later launches as they come. Notices show on the tray icon and, one a line, on
// standard error. Needs a display; without one it says so and returns 1. Runs the event loop and
// returns the exit status. Main thread.
int run(int argc, char** argv, const LaunchRequest& request);

// The self-test ("--selftest"): the application starts in its self-test mode, beside
// any Lumenvale already running (it neither claims nor hands over), runs the checks
// (SelfTest.h) and returns their status: 0 when every check passed, 1 otherwise.
// Needs a display, as run() does.
int runSelfTest(int argc, char** argv);

} // namespace lumenvale::TrayApp
