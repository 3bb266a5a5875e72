#pragma once

// Joining parts into one standard MPEG-4 by stream copy. Internal to the
// recording-files area; RecordingFiles.cpp decides names, folders and clean-up.

#include "files/MovieFile.h"
#include "files/PartInput.h"

#include <memory>
#include <stdexcept>
#include <vector>

namespace lumenvale::files {

enum class MoovPlacement {
    front, // space for the index reserved before the samples, filled at the end
    end,   // the index after the samples (when the sample count is not known up front)
};

// The index did not fit the space reserved for it; write again with MoovPlacement::end.
struct ReservedSpaceTooSmall : std::runtime_error {
    ReservedSpaceTooSmall() : std::runtime_error("reserved moov space too small") {}
};

// MoovPlacement::front when every part lists its samples up front, else end.
MoovPlacement moovPlacementFor(const std::vector<std::unique_ptr<PartInput>>& parts);

// Writes `parts` (in recording order, at least one) as one movie into `file`.
// The video of each part follows the previous part's video; the audio of each track
// stays gapless (see AudioPlacement); a recording whose last part has the audio
// offset tag (the part writer's) ends with its picture and its sound together: last
// parts with picture and no sound are left out (their duration is 0), and the last
// part kept ends its tracks together (see PartInput::endTracksTogether). Streams: the first part's
// video and all its audio tracks, with their tags, titles and dispositions; later parts must match
// their formats (MediaError otherwise). Returns the video duration of each part in seconds (0 for a
// part of which nothing could be read). Throws MediaError (a write failure gives the file's
// sentence), or ReservedSpaceTooSmall.
std::vector<double> writeJoined(const std::vector<std::unique_ptr<PartInput>>& parts,
                                MovieFile& file, MoovPlacement placement);

} // namespace lumenvale::files
