#pragma once

#include <QStringList>

namespace lumenvale {

// `lumenvale record ...`: records with the stored options changed by the flags (for
// this run only; nothing is saved), first recovering what an interrupted recording
// left behind. Prints the movie's path on standard output and returns 0; on failure
// prints the user-facing message on standard error and returns 1; a malformed command
// line prints the usage and returns 2. SIGUSR1 pauses and resumes, SIGINT and SIGTERM
// stop and save (or cancel during the countdown).
// `arguments` are the words after "record". Call on the main thread of a running
// QCoreApplication (or QGuiApplication); blocks until the recording is saved.
int runRecord(const QStringList& arguments);

} // namespace lumenvale
