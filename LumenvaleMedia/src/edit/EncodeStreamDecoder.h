#pragma once

// Decoding one stream of a source movie, audio or video, for the exports that work
// on decoded pictures and sound (encoded movie, GIF, thumbnails). Internal to the
// edit area; each object is used by one thread at a time.

#include "ffmpeg/Handles.h"

#include <functional>
#include <string>

namespace lumenvale::edit {

// How much work the decoder may skip.
enum class DecodeDepth {
    everyFrame,   // every frame, exactly as the movie shows it
    keyframesFast // keyframes only, without the loop filter: quick, slightly soft pictures
};

class StreamDecoder {
  public:
    // Opens a decoder for `stream` of the movie named `movieName` (for messages).
    // Throws MediaError when this system has no decoder for it.
    StreamDecoder(const AVStream* stream, const std::string& movieName,
                  DecodeDepth depth = DecodeDepth::everyFrame, int threads = 0);

    // A frame handed to the sink is valid only during the call. Its pts is set (from
    // the best-effort timestamp when the packet had none).
    using FrameSink = std::function<void(AVFrame* frame)>;

    // Sends a packet and hands every frame that becomes ready to `sink`. A packet the
    // decoder rejects as damaged is skipped; other failures throw MediaError.
    void decode(const AVPacket* packet, const FrameSink& sink);
    // No more packets: hands out the frames still held and readies the decoder for
    // packets after a seek.
    void drain(const FrameSink& sink);
    // Forgets everything sent so far (after a seek).
    void reset();

    const AVCodecContext& context() const { return *context_; }
    AVRational timeBase() const { return timeBase_; }

  private:
    void receive(const FrameSink& sink);

    ff::CodecContext context_;
    ff::Frame frame_;
    AVRational timeBase_;
    std::string movieName_;
};

} // namespace lumenvale::edit
