#pragma once

#include "LumenvaleMedia/EditRenderer.h"

#include <string>

namespace lumenvale {

// How mpv plays a built edit so that it looks and sounds like the export:
// - `url`: an inline EDL ("edl://") with the kept range of every clip in order, so the
//   timeline's time is the edit's output time before the speed; mpv cuts each range
//   to the frame, and every track of the movie follows the same ranges in sync.
// - `speed`: the edit's speed, played with the pitch kept (mpv's scaletempo).
// - `videoFilter`: the crop in pixels, or empty for none.
// - `audioGraph`: the sound the export's default track carries, as mpv's lavfi-complex
//   graph (its "[aidN]" are the movie's audio tracks in file order): a Lumenvale
//   recording with a mix track plays the mix rebuilt from its gained source tracks
//   (each on both channels, summed, clipped to full scale, as the export rebuilds it);
//   any other movie plays its first audio track with that track's gain. Empty when
//   the movie has no sound.
struct MpvPreviewPlan {
    std::string url;
    double speed = 1;
    std::string videoFilter;
    std::string audioGraph;
    double outputDurationSeconds = 0;
};

MpvPreviewPlan planPreview(const EditRenderer::Built& built);

} // namespace lumenvale
