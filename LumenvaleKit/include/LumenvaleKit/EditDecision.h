#pragma once

#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/PixelSize.h"
#include "LumenvaleKit/Result.h"
#include "LumenvaleKit/Uuid.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumenvale {

// One kept range of the source movie, in seconds of source time.
struct Clip {
    Uuid id;
    double start = 0;
    double end = 0;

    // A clip with a new random id.
    static Clip make(double start, double end);

    double duration() const { return end - start; }
    friend bool operator==(const Clip&, const Clip&) = default;
};

// The clip under an output time and the source time it shows.
struct Location {
    std::size_t index = 0;
    double source = 0;
    friend bool operator==(const Location&, const Location&) = default;
};

// The longest edited result a movie is made of, in seconds: a day. What an edit keeps
// depends on the movie (a clip may reach past its end), so this is checked where the
// edit meets the movie.
inline constexpr double maxOutputSeconds = 86400;
// The furthest from 0 any time of an edit may lie, in seconds (about 31 years): beyond
// every movie, and far inside what counting in the finest time bases of movies holds.
inline constexpr double maxEditSeconds = 1e9;

// The editor's edit decision list: which ranges of the source are kept, in which
// order, how fast the result plays, how it is cropped and how loud each audio
// track is. A plain value: a copy is a complete, independent snapshot.
//
// Audio track numbers in `volumes` count the movie's source audio tracks from 1
// (see docs/recording-format.md for which tracks those are).
struct EditDecision {
    double sourceDuration = 0;
    std::vector<Clip> clips;
    double speed = 1;
    std::optional<Rect> crop;      // fractions of the picture, origin top-left
    std::map<int, double> volumes; // track number -> gain; no entry = 1

    EditDecision() = default;
    // One clip over the whole source, speed 1, no crop, no volumes.
    explicit EditDecision(double duration);

    // Sum of the clips' durations divided by the speed.
    double outputDuration() const;
    // The gain of an audio track: its entry, or 1.
    double volume(int track) const;
    // Speed 1, no crop and every volume exactly 1: the edit only cuts.
    bool isPassthrough() const;
    // Output time at which each clip begins.
    std::vector<double> clipStarts() const;
    // The clip under output time t (clamped into the edit) and its source time;
    // a boundary belongs to the later clip. No clips: index 0, source 0.
    Location locate(double outputTime) const;
    // The output time that shows source time s; the first clip holding s (ends
    // included) wins; nothing when s lies in no clip.
    std::optional<double> outputTime(double sourceTime) const;
    // Why no movie can be made of this edit, as the end of a sentence ("\"speed\" must
    // be above 0."), or nothing when one can: a time that is not finite or lies beyond
    // maxEditSeconds; no clip, or a clip that does not end after it starts; a speed
    // that is not above 0; a crop that is empty or reaches outside the picture (its
    // standardised form must lie within 0 ... 1 both ways); a gain that is negative or
    // not finite. Edits made by the editing operations from a valid edit are valid;
    // edits from outside (a file, the command line) are checked with this before
    // anything converts their values.
    std::optional<std::string> problem() const;
    // Splits the clip under output time t; refuses a piece under 0.1 s.
    bool split(double atOutput);
    // Removes the clip with that id; never the last remaining clip.
    bool deleteClip(const Uuid& id);
    // Moves one or both edges of a clip, within its neighbours and the source,
    // never shorter than 0.1 s. An unknown id is ignored.
    void trim(const Uuid& id, std::optional<double> start, std::optional<double> end);

    // The crop in whole, even pixels of a video of the given size, each side at least 2.
    static Rect cropPixels(const Rect& crop, PixelSize video);
    // The largest centred crop of the given aspect ratio (width / height), in fractions.
    static Rect centeredCrop(double aspect, PixelSize video);

    friend bool operator==(const EditDecision&, const EditDecision&) = default;
};

// The JSON object {"sourceDuration", "clips", "speed", "crop"?, "volumes"} in that order;
// clip ids in upper-case text form, volume track numbers as decimal strings. Numbers are
// written so that decoding gives them back exactly; a non-finite number (which JSON
// cannot hold) is written as null, so such an edit does not decode again.
std::string encode(const EditDecision& edit);
// "sourceDuration", "clips", "speed" and "volumes" are required; a missing or null
// "crop" means no crop. Values are not range-checked: an edit from outside is checked
// with problem() before it is used. Fails on anything else that does not match: wrong
// types, a rectangle that is not [[x, y], [width, height]], a clip id that is not a
// UUID, a track number that is not a plain decimal int ("1", "-2"). Never throws. Any
// thread.
Result<EditDecision> decodeEditDecision(std::string_view json);

namespace GIFPlan {
// The output times of a GIF's frames: n = floor(fps * min(maxSeconds, duration)),
// at least 1; times k / fps for k = 0 ... n - 1.
std::vector<double> times(double duration, double fps, double maxSeconds);
} // namespace GIFPlan

} // namespace lumenvale
