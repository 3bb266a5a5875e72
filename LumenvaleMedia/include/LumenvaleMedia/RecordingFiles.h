#pragma once

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleMedia/Image.h"
#include "LumenvaleMedia/MediaError.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace lumenvale {

// A finished recording: the movie in the save folder and what the recording card, the
// menu and the editor show of it. A plain value; whoever holds it owns it.
struct Recording {
    // The saved movie.
    std::filesystem::path path;
    // The saved movie's duration, read back from the written file.
    double durationSeconds = 0;
    // A frame for thumbnails, RGBA, longer side at most 640 pixels; absent when no
    // frame could be taken.
    std::optional<Image> poster;
    // The video duration of each part that went into the movie, in recording order.
    std::vector<double> partDurations;
};

// Turns the part files of a finished recording (docs/recording-format.md) into one
// standard MPEG-4 movie, by stream copy only (never re-encoded).
//
// Threads: every function runs on a worker thread, never the GUI thread (they read
// and write whole movies); they share no state, so several may run at once on
// different files. save() decodes the poster on a helper thread of its own while the
// movie is synced to the disk, and joins it before returning. Errors are MediaError
// with a sentence for the user.
namespace RecordingFiles {

// Saves a recording: `parts` in recording order, `folder` the save folder (created with
// its missing parents), `date` the local time the movie is named after
// ("Lumenvale Recording 2026-11-15 at 20.43.31.mp4", or the first free name after it).
//
// Parts that cannot be opened or hold no video (or no audio, for a movie without
// video) are left out; when none is left, throws MediaError(RecError::nothingRecorded).
// The movie is written under a hidden temporary name in `folder`, synced to the disk
// and renamed to its name without ever replacing an existing file, even one created
// by someone else meanwhile. Only then are the parts that went in (and the empty
// ones) removed; on any failure every part is kept and no partial movie remains.
// A part that cannot be opened at all is never removed.
//
// The caller holds the parts' locks (PartLock: the recording's own, or those recovery
// took) for the whole call, so that no recovery takes them meanwhile; save takes no
// lock of its own, so it is never refused a part its caller holds.
Recording save(const std::vector<std::filesystem::path>& parts, const std::filesystem::path& folder,
               const LocalDateTime& date);

// Joins `parts` (in order) into a new movie at `destination`, which must not exist
// (MediaError if it does, and nothing is replaced). One part is copied into a standard
// MPEG-4; several are joined: the video of each part follows the previous part's
// video; the audio stays gapless, with the encoder's priming only at the start.
// Does not remove the parts. Returns the video duration of each part that went in.
std::vector<double> join(const std::vector<std::filesystem::path>& parts,
                         const std::filesystem::path& destination);

// A poster for `movie`: the frame at RecordingName::posterTime(durationSeconds),
// scaled down (never up) to a longer side of at most 640 pixels, aspect kept.
// Absent when the movie has no video or the frame cannot be decoded; never throws.
std::optional<Image> poster(const std::filesystem::path& movie, double durationSeconds);

} // namespace RecordingFiles
} // namespace lumenvale
