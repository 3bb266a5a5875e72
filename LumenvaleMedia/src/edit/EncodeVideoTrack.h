#pragma once

// The picture of an edit encoded again: the source's frames, cropped, retimed to a
// constant frame rate equal to the source's (at a speed other than 1, frames are
// dropped or repeated by output time) and encoded with the chosen codec at visually
// lossless quality. Internal to the edit area; used by the one thread that exports.
//
// Output frame k stands for output time k / rate; it shows the source frame that is
// on screen at the matching source time (the latest frame that starts by then).

#include "LumenvaleKit/Codec.h"
#include "edit/EncodeClipTrack.h"
#include "edit/EncodeStreamDecoder.h"
#include "edit/MovieWriter.h"

#include <cstdint>
#include <string>

namespace lumenvale::edit {

// The encoder of an export that encodes the picture again: x264 (CRF 17, preset
// "medium") or x265 (CRF 19, preset "fast", tagged hvc1), yuv420p, the source's
// colour description, a keyframe at least every 2 seconds. The caller owns it.
ff::CodecContext makeExportVideoEncoder(Codec codec, PixelSize size, int framesPerSecond,
                                        const AVCodecParameters& source);

// The part of the source picture that is kept: the crop's pixels (origin top-left),
// moved inside the picture where the crop reaches past its edge, in whole even pixels.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};
PixelRect keptPixels(const EditRenderer::Built& built);

class VideoTrackEncode final : public ClipTrack {
  public:
    // Adds the picture's stream to `writer` (call before the writer starts).
    VideoTrackEncode(const AVStream* source, const std::string& movieName,
                     const EditRenderer::Built& built, Codec codec, MovieWriter& writer);

    int sourceStream() const override { return streamIndex_; }
    void beginClip(const EditRenderer::Segment* segment) override;
    bool wantsPackets() const override { return segment_ != nullptr && !segmentDone_; }
    void take(const AVPacket& packet) override;
    void endClip(ClipEnd end) override;
    void finish() override;

  private:
    void onFrame(AVFrame* frame);
    bool inSegment(std::int64_t index) const;
    double sourceSecondsOf(std::int64_t index) const;
    void emit(const AVFrame* picture);
    void send(const AVFrame* frame);

    int streamIndex_;
    StreamDecoder decoder_;
    ff::CodecContext encoder_;
    MovieWriter& writer_;
    int outputStream_ = -1;
    PixelRect kept_;
    PixelSize sourceSize_;
    double speed_ = 1;
    int framesPerSecond_ = 30;

    const EditRenderer::Segment* segment_ = nullptr;
    bool segmentDone_ = false;
    ff::Frame current_;     // the latest frame of this clip that starts by the next instant
    ff::Frame previous_;    // the last frame shown of the clip before, for gaps
    std::int64_t next_ = 0; // the next output frame
    ff::Sws scaler_;
    ff::Packet packet_;
};

} // namespace lumenvale::edit
