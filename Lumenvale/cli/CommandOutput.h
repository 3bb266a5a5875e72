#pragma once

#include <QString>
#include <cstdio>

// What the commands write, flushed at once so that their lines, the notices and the
// countdown keep their order however the streams are buffered. Text is written in
// the locale's encoding (UTF-8).
namespace lumenvale {

// A message for the user on standard error: `text`, ended with a line end unless it
// has one. The one way a command reports what went wrong.
void printError(const QString& text);

// `text` on `stream` exactly as given: a path on standard output, the countdown's
// "3… " on standard error.
void printTo(std::FILE* stream, const QString& text);

} // namespace lumenvale
