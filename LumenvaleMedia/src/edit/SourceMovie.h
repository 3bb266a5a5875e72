#pragma once

// A source movie opened for editing: its demuxer and which streams the editor uses.
// Internal to the edit area. Used by one thread at a time.

#include "LumenvaleMedia/EditRenderer.h"
#include "ffmpeg/Handles.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace lumenvale::edit {

// Times in the edit are taken at a resolution of 1/600 s, so cut points are exact
// rational numbers and match the frames of every common frame rate.
inline constexpr std::int64_t ticksPerSecond = 600;
inline constexpr AVRational tickTimeBase{1, 600};

// Seconds to ticks, rounded to the nearest tick. A value that is not finite or out
// of range stops the process (a programming error, never a user's).
std::int64_t toTicks(double seconds);

// What tells that a file changed: which file the name leads to, its size and when it
// was last written.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    std::int64_t size = -1;
    std::int64_t modifiedNanoseconds = 0;
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

struct SourceMovie {
    std::filesystem::path path;
    FileStamp stamp; // as it was just before it was opened
    ff::InputContext input;
    int videoStream = -1;          // the first video stream that is not a cover picture
    std::vector<int> audioStreams; // in file order

    AVStream* stream(int index) const { return input->streams[index]; }
};

// Opens a movie for editing. Throws MediaError: a file that is missing, unreadable,
// not a movie (also a still picture, or a file with neither picture nor sound),
// truncated (its index points past the end of the file), or without a picture ("“x.m4a”
// has no picture.").
SourceMovie openSourceMovie(const std::filesystem::path& path);

// The time a stream covers, in seconds: from its start to its start plus its length.
struct TimeRange {
    double start = 0;
    double end = 0;
};
TimeRange trackRange(const SourceMovie& movie, int streamIndex);

// The rate of the finest grid all of a picture stream's frame times lie on (from the
// container's index), when its frames do not come evenly and that rate is one a movie
// has (at most 240 a second): a screen recording leaves out the frames in which
// nothing changed, so its average rate is below its own. Nothing otherwise.
std::optional<double> frameGridRate(const AVStream* stream);

// True for the mixed track Lumenvale writes when both system audio and microphone
// are recorded (recognised by its title or handler name).
bool isMixTrack(const AVStream* stream);
// The name the movie gives the track (its title, else its handler's name unless that is
// a muxer's placeholder), or empty.
std::string trackName(const AVStream* stream);

// Resolves the edit against the opened movie (see EditRenderer::build).
EditRenderer::Built resolveEdit(const SourceMovie& movie, const EditDecision& edit);

// "The movie “<name>” is damaged or incomplete."
MediaError damagedMovie(const std::filesystem::path& path);

// "The movie “<name>” changed while it was being exported."
MediaError changedWhileExporting(const std::filesystem::path& path);

// Throws changedWhileExporting() when the movie's file is no longer the one that was
// opened, as it was then. An export checks this before it publishes its file: what it
// read of a file that changed meanwhile may not fit together.
void checkUnchanged(const SourceMovie& movie);

} // namespace lumenvale::edit
