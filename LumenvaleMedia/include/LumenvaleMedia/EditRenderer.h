#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/EditDecision.h"
#include "LumenvaleMedia/Image.h"

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::EditRenderer {

// One stretch of a source track placed in the result: source seconds
// [sourceStart, sourceEnd) shown from output second outputStart on, already
// clipped to the track's own range. Output times are before the speed is applied
// (divide by `speed` for the played result). Every track keeps its place against the
// others: a clip that a track covers only in part leaves the rest of the clip's
// place on that track empty, so the tracks stay in sync.
struct Segment {
    double sourceStart = 0;
    double sourceEnd = 0;
    double outputStart = 0;
    std::size_t clipIndex = 0; // the edit clip this stretch comes from
};

enum class TrackKind { video, audio };

// A source track and where its kept ranges go.
struct TrackPlan {
    TrackKind kind = TrackKind::video;
    int streamIndex = 0; // the source's stream index
    int sourceTrack =
        0; // audio: the number used in EditDecision::volumes (0 = a mix track); video: 0
    bool isMix = false; // a Lumenvale mix of the source tracks (rebuilt, not gained, on re-encode)
    double gain = 1;    // audio: the edit's volume for sourceTrack
    std::string name;   // what the movie calls the track; empty when it gives no name
    std::vector<Segment> segments;
};

// An edit resolved against a real movie: what to take from which track.
struct Built {
    std::filesystem::path source;     // the movie the edit was resolved against
    std::vector<TrackPlan> tracks;    // video track first, then audio tracks in file order
    int audioTracks = 0;              // source audio tracks, mixes not counted
    PixelSize videoSize;              // the source's picture size
    PixelSize outputSize;             // after the crop: cropPixels' even size, else videoSize
    double frameRate = 30;            // the source's nominal rate rounded, or 30
    double outputDurationSeconds = 0; // after the speed
    EditDecision edit;
};

// Where an export goes. Its file is written under a hidden name in the folder of `path`
// and appears under its own name only once complete: a killed export leaves nothing
// under it, and a file there is never replaced, not even one that appears while the
// export runs (or a dangling symbolic link, which is never written through).
struct Destination {
    // Exactly `path`: an export whose name is taken fails and says so. (Implicit: a
    // plain path is this kind of destination.)
    Destination(std::filesystem::path exactly) : path(std::move(exactly)) {}
    // `preferred` (in the folder of the export) or, when it is taken by the time the
    // export is complete, the next free "<base> 2.<ext>", "<base> 3.<ext>", ... as
    // RecordingName::unique() names them; <ext> is that of `preferred`.
    static Destination numbered(std::filesystem::path preferred, std::string base) {
        Destination destination(std::move(preferred));
        destination.numberingBase = std::move(base);
        return destination;
    }

    std::filesystem::path path;
    std::optional<std::string> numberingBase; // set: numbered
};

// Progress from 0 to 1, called from the worker thread that exports.
using Progress = std::function<void(double fraction)>;

// A sentence about how an export proceeds, for showing beside its progress (for
// example that the whole picture has to be encoded again). Called from the worker
// thread that exports, at most a few times per export.
using StatusText = std::function<void(const std::string& sentence)>;

// Reads the movie and resolves the edit; edit times are taken at 1/600 s. Throws
// MediaError: a file that is missing, not a movie, truncated, without video or without
// duration ("Nothing was recorded."), an edit that EditDecision::problem() refuses, one
// of which nothing lies inside the movie, or one whose result would last longer than a
// day or less than one frame.
// Called from a worker thread; the result is the caller's.
Built build(const std::filesystem::path& source, const EditDecision& edit);

// Writes the edit as an MPEG-4 movie. An edit that only cuts (isPassthrough) is
// copied without encoding again except, at most, the frames between a cut and the
// next keyframe; any other edit is encoded with `codec` at visually lossless quality.
// Each clip shows exactly the frame at its start through the last frame before its
// end. The frames encoded at a cut share the movie's parameter sets when an encoder
// can reproduce them (Lumenvale's recordings; movies whose x264 / x265 encoder left its
// settings in them), else carry their own. When the picture cannot be copied at all
// (another codec or picture format), it is encoded again in full with `codec` and the
// sound still copied; when the sound is not AAC, the whole movie is encoded again.
// `status` (optional) is told why either way.
// Returns the path written (see Destination). On failure throws MediaError and leaves
// nothing behind: an edit that problem() refuses or whose result would be longer than
// a day or shorter than one frame, a name that is taken, a source that changed while
// it was read ("The movie “…” changed while it was being exported.").
// `cancel` (optional) stops the export early with a MediaError when it becomes true.
std::filesystem::path exportMovie(const std::filesystem::path& source, const EditDecision& edit,
                                  Codec codec, const Destination& destination,
                                  const Progress& progress,
                                  const std::atomic<bool>* cancel = nullptr,
                                  const StatusText& status = {});

// Writes the first 30 seconds of the edit (at most) as a looping GIF, 10 frames a
// second, at most 640 pixels on the longer side after the crop. Progress counts frames.
// Returns the path written; fails as exportMovie() does.
std::filesystem::path exportGIF(const std::filesystem::path& source, const EditDecision& edit,
                                const Destination& destination, const Progress& progress,
                                const std::atomic<bool>* cancel = nullptr);

struct Thumbnail {
    double timeSeconds = 0;
    Image image;
};

// `count` pictures at the centres of equal slices of the source, fitting 240 x 240,
// sorted by time. Empty for a movie without duration or for count 0. Never throws:
// a picture that cannot be made is left out.
std::vector<Thumbnail> thumbnails(const std::filesystem::path& source, int count);

} // namespace lumenvale::EditRenderer
