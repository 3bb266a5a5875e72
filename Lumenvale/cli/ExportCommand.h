#pragma once

#include <string>
#include <vector>

namespace lumenvale {

// `lumenvale export MOVIE [--edit EDIT.json] [--gif] [--codec h264|hevc] [--output PATH]`
//
// Writes MOVIE, cut as EDIT.json says (an EditDecision in its JSON coding; the whole
// movie without it), as an MPEG-4 movie in the codec given (default: the stored
// recording options' codec) or, with --gif, as a GIF. Without --output the file goes
// next to the movie as "<name> edited.mp4" / ".gif", numbered when taken, as the
// editor names its exports; an --output that exists (a dangling link too) is refused,
// never replaced. The file appears under its name only once complete.
//
// `arguments` are the words after "export", as the process got them: paths are used
// byte for byte, whatever their encoding. Prints the written path on standard
// output and the progress on standard error; on failure prints the reason on standard
// error, leaves no file behind and returns non-zero (2 for a malformed command line).
// Blocking; call it on the main thread of a running QCoreApplication.
// SIGINT or SIGTERM stops the export (and removes the partial, hidden file).
int runExport(const std::vector<std::string>& arguments);

} // namespace lumenvale
