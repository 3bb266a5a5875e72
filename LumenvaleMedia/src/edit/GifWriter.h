#pragma once

// A GIF file written through FFmpeg's GIF encoder and muxer: palette frames of one
// size, each shown for 0.1 s, looping forever. Frames that share the global palette
// with the frame before are coded as the changed rectangle with unchanged pixels
// transparent. Internal to the edit area; used by one thread.

#include "edit/GifQuantizer.h"
#include "ffmpeg/Handles.h"

#include <filesystem>

namespace lumenvale::edit {

class GifWriter {
  public:
    // Creates `destination` for frames of `width` x `height`.
    GifWriter(const std::filesystem::path& destination, int width, int height);
    // Removes the file unless finish() succeeded.
    ~GifWriter();
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    void write(const GifQuantizer::Frame& frame);
    void finish();

  private:
    void send(const AVFrame* frame);

    std::filesystem::path destination_;
    ff::OutputContext output_;
    ff::CodecContext encoder_;
    ff::Frame frame_;
    ff::Packet packet_;
    std::int64_t frames_ = 0;
    bool finished_ = false;
};

} // namespace lumenvale::edit
