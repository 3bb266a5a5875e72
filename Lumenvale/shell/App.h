#pragma once

namespace lumenvale::App {

// The program: with no command, the tray application; "record" and "export" run the
// command-line tools; "--selftest" anywhere asks for the built-in self-test. Returns
// the process's exit status. Call once, from main(), on the main thread.
int run(int argc, char** argv);

} // namespace lumenvale::App
