#pragma once

// Decoding a source's video packets and encoding frames for a given place in the
// output. Internal to the edit area; each object is used by one thread at a time.

#include "ffmpeg/Handles.h"

#include <cstdint>
#include <functional>
#include <map>

namespace lumenvale::edit {

// Decodes one video stream; frames come out in presentation order.
class FrameDecoder {
  public:
    explicit FrameDecoder(const AVStream* stream);
    using FrameSink = std::function<void(AVFrame* frame)>;
    // Sends a packet (nullptr: no more packets, drain) and hands each frame that
    // becomes ready to `sink`; the frame is valid only during the call. A packet the
    // decoder rejects throws MediaError.
    void decode(const AVPacket* packet, const FrameSink& sink);
    // Forgets everything sent so far, ready for a packet after a seek.
    void reset();

  private:
    ff::CodecContext context_;
    ff::Frame frame_;
    ff::Packet padded_;
};

// Which frame types an encoder gives: its own choice, or a keyframe followed only by
// predicted frames (no B-frames, whatever the encoder was set up for, so the frames
// come out in the order they went in).
enum class FrameTypes { encoderChooses, keyThenPredicted };

// Encodes frames with an opened encoder, each frame placed at an output timestamp
// chosen by the caller; frames that differ from the encoder's size or pixel format
// are converted first. Packets come out with pts = dts = the frame's output
// timestamp (the encoders used make no B-frames, or are kept from making them).
class FrameEncoder {
  public:
    explicit FrameEncoder(ff::CodecContext encoder, FrameTypes types = FrameTypes::encoderChooses);
    using PacketSink = std::function<void(AVPacket* packet)>;
    void encode(const AVFrame* frame, std::int64_t outputTimestamp, const PacketSink& sink);
    // Drains the encoder; afterwards it accepts no more frames.
    void flush(const PacketSink& sink);
    const AVCodecContext& context() const { return *encoder_; }

  private:
    const AVFrame* converted(const AVFrame* frame);
    void receive(const PacketSink& sink);

    ff::CodecContext encoder_;
    FrameTypes types_;
    ff::Frame input_;  // the frame handed to the encoder
    ff::Frame scaled_; // conversion target, allocated on first need
    ff::Sws scaler_;
    ff::Packet packet_;
    std::int64_t nextIndex_ = 0;
    std::map<std::int64_t, std::int64_t> outputTimestamps_; // encoder pts -> output pts
};

} // namespace lumenvale::edit
