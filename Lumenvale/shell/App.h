#pragma once

namespace lumenvale::App {

// The program: "record" and "export" run the command-line tools; "--selftest"
// anywhere asks for the built-in self-test; anything else is the tray application or
// a request for it (an action, movies to open: parseLaunch), which goes to the
// Lumenvale that runs already when there is one. Returns the process's exit status.
// Call once, from main(), on the main thread.
int run(int argc, char** argv);

} // namespace lumenvale::App
