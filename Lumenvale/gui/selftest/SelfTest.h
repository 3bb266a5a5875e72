#pragma once

#include <functional>

namespace lumenvale {

class AppDelegate;

// The built-in self-test ("lumenvale --selftest"): drives the running application as a
// user would, through labelled checks printed one a line ("ok …" / "FAILED …: why"):
// the menu's rows and their enablement while idle, recording and paused; a screen
// recording of about three seconds with a pause, its movie saved in the APP_STORE
// folder and decoding at its length; settings stored and read back from the file; a
// shortcut recorded in the shortcut field, then pressed on the keyboard to record and
// stop; and a check for updates against a feed the self-test serves itself. The
// user's stored options and shortcuts are left as they were.
//
// The application must run in the self-test mode (no hotkeys loaded, no welcome) with
// APP_STORE set. Threads: the GUI thread.
namespace SelfTest {

// Starts the checks; `finished` gets the exit status (0 every check passed, else 1).
void start(AppDelegate& delegate, std::function<void(int status)> finished);

} // namespace SelfTest
} // namespace lumenvale
