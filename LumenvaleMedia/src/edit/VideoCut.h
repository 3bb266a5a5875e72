#pragma once

// Copying a video track (without B-frames) piece by piece, frame-exact. A piece
// starts on the frame shown at its source start and ends with the last frame shown
// before its source end. When the first frame is not a keyframe, the frames from it
// up to the next keyframe are decoded (from the keyframe before them) and encoded
// again with an encoder matching the source's parameter sets; from that keyframe on
// the packets are copied untouched. Each kept frame gets its own timestamp: the first
// one of a piece at the piece's output start, the others at their distance from the
// source start, so the timeline is plain and contiguous (no edit lists needed).

#include "edit/CutEncoder.h"
#include "edit/CutPlan.h"
#include "edit/FrameCoding.h"
#include "edit/VideoOutput.h"

#include <memory>
#include <vector>

namespace lumenvale::edit {

class SourceBytes;

class VideoCut final : public TrackCutter {
  public:
    // `bytes` (optional) gives the real bytes of packets that carry its stand-ins, for
    // the frames that are decoded.
    VideoCut(const AVStream* source, CutEncoders& encoders, VideoOutput& output,
             const SourceBytes* bytes);

    void begin(const std::optional<Place>& place) override;
    void take(AVPacket* packet) override;
    bool done() const override { return phase_ == Phase::done; }
    void end() override;
    void finish() override;

  private:
    enum class Phase { findingStart, encodingHead, copying, done };

    // Before the start: keeps the packets since the last keyframe.
    void buffer(AVPacket* packet);
    // The start frame is known (the last one buffered): copy or encode from it.
    void startPiece();
    void decode(AVPacket* packet);
    void encodeFrame(AVFrame* frame);
    void emitEncoded(const AVPacket* encoded);
    void finishHead();
    void copy(AVPacket* packet);
    std::int64_t outputTimestamp(std::int64_t sourceTimestamp) const;
    bool before(std::int64_t sourceTimestamp, std::int64_t ticks) const;

    const AVStream* source_;
    CutEncoders& encoders_;
    VideoOutput& output_;
    const SourceBytes* bytes_;
    AVCodecID codec_;
    int lengthSize_;

    Phase phase_ = Phase::done;
    Place place_;
    std::vector<ff::Packet> keyframeRun_; // from a keyframe up to the start frame
    std::int64_t startTimestamp_ = 0;     // source pts of the piece's first frame
    bool decodable_ = false;              // the piece's output has begun with a keyframe
    bool missedStart_ = false;            // a frame by the start came with no keyframe before
    std::unique_ptr<FrameDecoder> decoder_;
    std::unique_ptr<FrameEncoder> encoder_;
    std::int64_t endTimestamp_ = 0; // output end of the last piece begun
};

} // namespace lumenvale::edit
