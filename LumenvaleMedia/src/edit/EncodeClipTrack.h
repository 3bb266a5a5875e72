#pragma once

// One track of a source movie encoded again, clip by clip: the re-encoding export
// seeks to each clip of the edit, hands every track the packets of its stream until
// the track has what the clip needs, and ends the clip. Internal to the edit area;
// used by the one thread that exports.

#include "LumenvaleMedia/EditRenderer.h"
#include "ffmpeg/Handles.h"

namespace lumenvale::edit {

enum class ClipEnd {
    reached,  // the track has all it needs of the clip
    endOfFile // the source ended first: take what the decoder still holds
};

class ClipTrack {
  public:
    virtual ~ClipTrack() = default;

    // The source stream whose packets this track takes.
    virtual int sourceStream() const = 0;
    // A clip begins; `segment` is this track's part of it, or nullptr when the track
    // has nothing in the clip. The source has just been sought.
    virtual void beginClip(const EditRenderer::Segment* segment) = 0;
    // True while the track still needs packets for the current clip.
    virtual bool wantsPackets() const = 0;
    virtual void take(const AVPacket& packet) = 0;
    virtual void endClip(ClipEnd end) = 0;
    // After the last clip: hands on everything still held.
    virtual void finish() = 0;
};

} // namespace lumenvale::edit
