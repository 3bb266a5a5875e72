#pragma once

// Copying a video track piece by piece, frame-exact. A piece starts on the frame shown
// at its source start and ends with the last frame shown before its source end.
// When the first frame is not a keyframe, the frames from it up to the next keyframe
// (with that keyframe's leading pictures, in an open GOP) are decoded from the
// keyframe before them and encoded again; from that keyframe on the packets are
// copied untouched. With B-frames, frames decoded after one past the end but shown
// before it would need that frame: they are encoded again too. Each kept frame gets
// its own timestamp: the first one of a piece at the piece's output start, the others
// at their distance from the source start, so the timeline is plain and contiguous.
// The frames encoded again share the source's parameter sets, or carry their own in
// their samples; then every copied keyframe carries the source's.

#include "edit/CutEncoder.h"
#include "edit/CutPlan.h"
#include "edit/FrameCoding.h"
#include "edit/ParameterSets.h"
#include "edit/VideoOutput.h"

#include <memory>
#include <set>
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
    void finish() override { output_.finish(endTimestamp_); }

  private:
    // leading: the keyframe after a head has come; its leading pictures still join
    // the head.
    enum class Phase { findingStart, encodingHead, leading, copying, done };

    // Before the start: keeps the packets since the last keyframe.
    void buffer(AVPacket* packet);
    // The start frame is known (the last shown by the start): copy or encode from it.
    void startPiece();
    // A packet after the start is known, by phase.
    void advance(AVPacket* packet);
    void takeCopying(AVPacket* packet);
    void decode(AVPacket* packet);
    void startEncoding();
    void encodeFrame(AVFrame* frame);
    void emitEncoded(const AVPacket* encoded);
    void finishEncoding();
    void copy(AVPacket* packet);
    // A reference to a copied packet, for decoding the frames after the end's.
    void keep(const AVPacket* packet);
    void encodeTail();
    void copyPendingKeyframe();
    // A copied keyframe: in band, the source's parameter sets before its units; after
    // a cut or encoded frames (`joined`), it begins a new sequence (beginSequence).
    void startSequence(AVPacket* packet, bool joined) const;
    std::int64_t outputTimestamp(std::int64_t sourceTimestamp) const;
    std::int64_t outputDecoding(std::int64_t sourceDecoding) const;
    bool before(std::int64_t sourceTimestamp, std::int64_t ticks) const;

    const AVStream* source_;
    CutEncoders& encoders_;
    VideoOutput& output_;
    const SourceBytes* bytes_;
    AVCodecID codec_;
    int lengthSize_;
    bool reorders_;                              // B-frames: shown in another order than decoded
    std::int64_t decodingDelay_ = 0;             // output ticks a frame may be decoded before shown
    std::int64_t sourceDelay_ = 0;               // the stream's reorder depth, in its own time base
    std::int64_t lastDecoding_ = AV_NOPTS_VALUE; // of the source's previous packet
    std::vector<Bytes> sourceSets_;

    Phase phase_ = Phase::done;
    Place place_;
    std::vector<ff::Packet> run_;     // from the last keyframe, in decoding order
    std::int64_t startTimestamp_ = 0; // source pts of the piece's first frame
    std::int64_t encodeUntil_ = 0;    // source pts the head ends before
    std::set<std::int64_t> tail_;     // source pts of the frames after the end's
    bool encodingTail_ = false;
    bool pastEnd_ = false;     // a frame shown after the end has been decoded
    bool decodable_ = false;   // the piece's output has begun with a keyframe
    bool missedStart_ = false; // a frame by the start came with no keyframe before
    bool joined_ = false;      // the last frame written is not the source's previous
    ff::Packet pendingKeyframe_;
    std::unique_ptr<FrameDecoder> decoder_;
    std::unique_ptr<FrameEncoder> encoder_;
    std::int64_t endTimestamp_ = 0; // output end of the last piece begun
};

} // namespace lumenvale::edit
