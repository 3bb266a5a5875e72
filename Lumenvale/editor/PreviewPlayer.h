#pragma once

#include "LumenvaleMedia/EditRenderer.h"

namespace lumenvale {

// The editor's preview player: plays a built edit (a plan of source ranges with the
// edit's speed, crop and gains) and reports where it is. The editor model is its only
// caller and owns it for the model's lifetime.
//
// Threads: every member function is called on the GUI thread and returns quickly.
// Times are seconds of output time (after cuts and speed).
//
// Contract the model relies on:
// - setPreview() replaces what plays; position and rate after it are unspecified
//   until the model seeks (it always does right after).
// - seek() is exact (no snapping to keyframes) and does not change the rate.
// - At the end of the preview the player pauses by itself: rate() becomes 0 and
//   currentTimeSeconds() stays at the end.
class PreviewPlayer {
  public:
    virtual ~PreviewPlayer() = default;

    virtual void setPreview(const EditRenderer::Built& preview) = 0;
    virtual void seek(double outputSeconds) = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    // 0 while paused, the playback rate (1 for the edit's own speed) while playing.
    virtual double rate() const = 0;
    virtual double currentTimeSeconds() const = 0;
};

} // namespace lumenvale
