#pragma once

#include "LumenvaleKit/PixelSize.h"

#include <filesystem>
#include <string>
#include <vector>

namespace lumenvale {

// What the editor needs to know about a movie before it can open it.
struct MovieFacts {
    double durationSeconds = 0; // the longest track's end
    PixelSize videoSize;        // the first video track's picture size
    int audioTracks = 0;        // source audio tracks (a Lumenvale mix is not counted)
    // What the movie calls each source audio track, in the order the edit's volumes
    // number them from 1: its own name, else "Audio Track N".
    std::vector<std::string> audioTrackNames;
};

// Reads the movie's facts. Blocking: call it on a worker thread.
// Throws MediaError with a sentence for the user: a missing file, a file that is not
// a movie or is damaged, and "Nothing was recorded." for a movie without video or
// without any length.
MovieFacts readMovieFacts(const std::filesystem::path& movie);

} // namespace lumenvale
