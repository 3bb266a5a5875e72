#pragma once

// The video stream of an export: packets placed at output timestamps, in decoding
// order, each lasting until the next one is decoded, the last until the end of the
// result. Internal to the
// edit area; used by the one thread that exports.

#include "edit/MovieWriter.h"

#include <cstdint>

namespace lumenvale::edit {

class VideoOutput {
  public:
    // `timeBase` is the time base the stream was added to `writer` with.
    VideoOutput(MovieWriter& writer, int stream, AVRational timeBase);

    int stream() const { return stream_; }
    AVRational timeBase() const { return timeBase_; }

    // Writes the frame before this one and holds this one back until its duration
    // is known. Takes over the packet's contents. Decoding timestamps must rise (a
    // clash, which only a time base too coarse for the source's frames gives, moves
    // the frame a tick later rather than break the file); a frame is never shown
    // before it is decoded.
    void emit(AVPacket* packet, std::int64_t presentation, std::int64_t decoding);
    // A frame shown in the order it is decoded.
    void emit(AVPacket* packet, std::int64_t outputTimestamp) {
        emit(packet, outputTimestamp, outputTimestamp);
    }
    // Writes the frame held back, lasting until `endTimestamp`.
    void finish(std::int64_t endTimestamp);

  private:
    void writeHeld(std::int64_t nextDecoding);

    MovieWriter& writer_;
    int stream_;
    AVRational timeBase_;
    ff::Packet held_;
    bool holding_ = false;
};

} // namespace lumenvale::edit
