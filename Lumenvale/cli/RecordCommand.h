#pragma once

#include <string>
#include <vector>

namespace lumenvale {

// The exit statuses of `lumenvale record`.
enum class RecordStatus {
    saved = 0,      // recorded until asked to stop; the movie's path is printed
    failed = 1,     // nothing was saved (or the start was cancelled); the reason is printed
    usage = 2,      // a malformed command line; the usage is printed
    endedEarly = 3, // the recording ended by itself (the window closed, the display or
                    // the sound server went away, the disk filled): what was recorded is
                    // saved and its path printed, the reason is on standard error
};

// `lumenvale record ...`: records with the stored options changed by the flags (for
// this run only; nothing is saved), first recovering what an interrupted recording
// left behind. Prints the movie's path on standard output; user-facing messages and
// the reason of any failure or early end go to standard error. Returns a RecordStatus.
// SIGUSR1 pauses and resumes, SIGINT and SIGTERM stop and save (or cancel during the
// countdown).
// `arguments` are the words after "record", as the process got them. Call on the main
// thread of a running QCoreApplication (or QGuiApplication); blocks until the
// recording is saved.
int runRecord(const std::vector<std::string>& arguments);

} // namespace lumenvale
