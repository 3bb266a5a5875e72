#pragma once

namespace lumenvale::TrayApp {

// The tray application: start-up (permissions, crash recovery, the shared recorder,
// the global shortcuts) and an icon in the system tray whose menu records the screen,
// stops and quits. Needs a display; without one it says so and returns 1. Runs the event loop and
// returns the exit status. Main thread.
int run(int argc, char** argv);

} // namespace lumenvale::TrayApp
