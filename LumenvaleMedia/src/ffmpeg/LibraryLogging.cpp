#include "LumenvaleMedia/LibraryLogging.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdlib>
#include <string_view>

namespace lumenvale {

namespace {

LibraryLogging fromEnvironment(LibraryLogging fallback) {
    const char* value = std::getenv("LUMENVALE_FFMPEG_LOG");
    const std::string_view text = value == nullptr ? std::string_view() : value;
    if (text == "quiet") {
        return LibraryLogging::quiet;
    }
    if (text == "errors") {
        return LibraryLogging::errors;
    }
    if (text == "detailed") {
        return LibraryLogging::detailed;
    }
    return fallback;
}

} // namespace

void setLibraryLogging(LibraryLogging logging) {
    switch (fromEnvironment(logging)) {
    case LibraryLogging::quiet:
        av_log_set_level(AV_LOG_QUIET);
        break;
    case LibraryLogging::errors:
        av_log_set_level(AV_LOG_ERROR);
        break;
    case LibraryLogging::detailed:
        av_log_set_level(AV_LOG_VERBOSE);
        break;
    }
}

} // namespace lumenvale
