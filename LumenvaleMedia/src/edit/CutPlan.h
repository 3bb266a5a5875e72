#pragma once

// The plan of a cut-only export: the pieces of the source to copy, in output order,
// and the interface of the per-track cutters that copy them. Internal to the edit
// area; used by the one thread that exports.

#include "LumenvaleMedia/EditRenderer.h"
#include "edit/SourceMovie.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

namespace lumenvale::edit {

// Where one track's stretch of a piece comes from and goes, in ticks (1/600 s).
struct Place {
    std::int64_t sourceStart = 0;
    std::int64_t sourceEnd = 0;
    std::int64_t outputStart = 0;
    std::int64_t outputEnd() const { return outputStart + (sourceEnd - sourceStart); }
};

// One stretch of the source copied in one go: per track of the Built (same
// order), its place, or nothing when the track has no part in it.
struct Piece {
    std::vector<std::optional<Place>> tracks;
};

// The pieces of a built edit in output order. Clips that continue each other in the
// source (a split that was not followed by a delete) form one piece, so no cut is
// made where the result has none.
std::vector<Piece> piecesOf(const EditRenderer::Built& built);

// Copies one source track's packets into the export, piece by piece.
class TrackCutter {
  public:
    virtual ~TrackCutter() = default;
    // A piece begins, after the source has been sought to before its start.
    // No place: the track has no part in this piece.
    virtual void begin(const std::optional<Place>& place) = 0;
    // The next packet of this track in file order; its contents may be taken over.
    virtual void take(AVPacket* packet) = 0;
    // True once the track wants no more packets for the current piece.
    virtual bool done() const = 0;
    // The piece is over: all tracks are done, or the source has ended.
    virtual void end() = 0;
    // The export is over: write whatever is still held back.
    virtual void finish() = 0;
};

// Thrown by the video cutter when a cut needs frames encoded again and no encoder
// suits the source at all; the export then starts over, encoding the whole picture.
// `what()` is the status sentence that tells the user why.
struct NeedsWholeEncode : std::runtime_error {
    explicit NeedsWholeEncode(const std::string& why) : std::runtime_error(why) {}
};

// Thrown by the video cutter when frames encoded again cannot share the source's
// parameter sets; the export then starts over with parameter sets in the samples.
struct NeedsInBandParameterSets : std::runtime_error {
    NeedsInBandParameterSets()
        : std::runtime_error("the frames encoded again need their own parameter sets") {}
};

// The finest time base in which both ticks and the stream's timestamps are whole
// numbers (so every cut lands exactly), or 1/90000 if that would be too fine.
AVRational exactTimeBase(AVRational streamTimeBase);

} // namespace lumenvale::edit
