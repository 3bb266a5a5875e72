#pragma once

// Encoding a video track again in full, piece by piece, for a cut-only export of a
// movie whose frames cannot be spliced (made by another encoder, or with B-frames).
// The frames kept are the same as when copying: from the frame shown at a piece's
// source start to the last frame before its end, placed the same way. One encoder
// runs through the whole export.

#include "edit/CutPlan.h"
#include "edit/FrameCoding.h"
#include "edit/VideoOutput.h"

namespace lumenvale::edit {

class VideoReencode final : public TrackCutter {
  public:
    // `encoder` is the opened encoder whose output `output`'s stream was added for.
    VideoReencode(const AVStream* source, FrameEncoder& encoder, VideoOutput& output);

    void begin(const std::optional<Place>& place) override;
    void take(AVPacket* packet) override;
    bool done() const override { return phase_ == Phase::done; }
    void end() override;
    void finish() override;

  private:
    enum class Phase { findingStart, encoding, done };

    void placeFrame(AVFrame* frame);
    void encode(const AVFrame* frame, std::int64_t sourceTimestamp);
    bool before(std::int64_t sourceTimestamp, std::int64_t ticks) const;

    const AVStream* source_;
    FrameDecoder decoder_;
    FrameEncoder& encoder_;
    VideoOutput& output_;
    Phase phase_ = Phase::done;
    Place place_;
    ff::Frame startFrame_; // the latest frame shown by the start instant
    bool holdingStart_ = false;
    std::int64_t endTimestamp_ = 0;
};

} // namespace lumenvale::edit
