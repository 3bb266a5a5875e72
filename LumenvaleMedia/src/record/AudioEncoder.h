#pragma once

#include "ffmpeg/Handles.h"

#include <cstdint>
#include <functional>

namespace lumenvale::record {

// One AAC-LC encoder (FFmpeg's native "aac", 48 kHz; 160 kbit/s stereo, 96 kbit/s
// mono) that lives for the whole recording. It takes interleaved float samples in
// any amounts, cuts them into 1024-sample frames stamped with the recording's sample
// counter (so timestamps run on across parts), and hands every packet it produces to
// the sink, in the 1/48000 time base. The first packet carries the encoder's priming
// (pts -1024). Used from the writer thread only.
class AudioEncoder {
  public:
    using PacketSink = std::function<void(AVPacket&)>;

    explicit AudioEncoder(int channels);

    const AVCodecContext& context() const { return *context_; }
    int channels() const { return channels_; }
    // Samples per channel taken so far (the recording's sample counter).
    std::int64_t samplesTaken() const { return taken_; }

    // Takes `frames` interleaved frames; whole 1024-sample frames are encoded at once,
    // the rest waits for the next samples.
    void push(const float* interleaved, std::int64_t frames, const PacketSink& sink);
    // The end of the recording: encodes what waits and drains the encoder.
    void flush(const PacketSink& sink);

  private:
    void encode(AVFrame* frame, const PacketSink& sink);

    int channels_;
    ff::CodecContext context_;
    ff::Frame frame_; // the frame being filled, planar float
    int filled_ = 0;  // samples per channel in frame_
    std::int64_t taken_ = 0;
    std::int64_t nextPts_ = 0;
    ff::Packet packet_;
};

} // namespace lumenvale::record
