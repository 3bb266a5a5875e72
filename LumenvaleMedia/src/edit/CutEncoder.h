#pragma once

// Encoders for the frames between a cut and the next keyframe. They must produce
// parameter sets byte-identical to the source's, so the spliced frames decode under
// the source's one sample description; for a Lumenvale recording that is the
// recording's own encoder settings at the recording's size and rate. Internal to the
// edit area; used by the one thread that exports.

#include "LumenvaleKit/Codec.h"
#include "ffmpeg/Handles.h"

#include <optional>
#include <vector>

namespace lumenvale::edit {

class CutEncoders {
  public:
    // `source` is the video stream being cut. The rate the recording was made at is
    // its base rate (a recording that dropped frames under load has a lower average);
    // the average is tried too.
    explicit CutEncoders(const AVStream* source);

    // A fresh encoder (its first frame becomes a keyframe) whose parameter sets equal
    // the source's. Throws NeedsWholeEncode when no such encoder can be made; the
    // first call finds out and the answer is kept.
    ff::CodecContext make();

    // The source's codec, as far as Lumenvale encodes it: h264 or hevc.
    static std::optional<Codec> codecOf(const AVCodecParameters& parameters);

  private:
    ff::CodecContext open(int framesPerSecond) const;
    bool matches(const AVCodecContext& encoder) const;

    const AVStream* source_;
    std::vector<int> candidateRates_;
    std::optional<int> matchingRate_; // once known
    bool searched_ = false;
};

} // namespace lumenvale::edit
