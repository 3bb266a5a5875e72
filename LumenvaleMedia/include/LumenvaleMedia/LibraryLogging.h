#pragma once

// What the media libraries underneath (FFmpeg and its encoders) may print on standard
// error. Their own messages are for developers; users read the media layer's
// MediaError texts instead, so the application keeps them quiet.

namespace lumenvale {

enum class LibraryLogging {
    quiet,    // nothing, not even the libraries' own error lines
    errors,   // the libraries' error lines only
    detailed, // everything, for chasing a problem (LUMENVALE_FFMPEG_LOG=detailed)
};

// Sets the level for the whole process. The environment variable
// LUMENVALE_FFMPEG_LOG ("quiet", "errors" or "detailed"), when set, wins over
// `logging`, so a user can send a developer the libraries' own account.
void setLibraryLogging(LibraryLogging logging);

} // namespace lumenvale
