#pragma once

// A GIF file written through FFmpeg's GIF encoder and muxer: palette frames of one
// size, each shown for 0.1 s, looping forever. Frames that share the global palette
// with the frame before are coded as the changed rectangle with unchanged pixels
// transparent. The file is written hidden and published once complete (FileOutput).
// Internal to the edit area; used by one thread.

#include "edit/FileOutput.h"
#include "edit/GifQuantizer.h"
#include "ffmpeg/Handles.h"

#include <filesystem>

namespace lumenvale::edit {

class GifWriter {
  public:
    // Starts the file that becomes `destination`, for frames of `width` x `height`.
    GifWriter(const EditRenderer::Destination& destination, int width, int height);
    // The file goes unless publish() succeeded.
    ~GifWriter();
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    void write(const GifQuantizer::Frame& frame);
    // Writes the last frame and the trailer: the file is complete.
    void finish();
    // Puts the complete file under its name and returns the path.
    std::filesystem::path publish() { return file_.publish(); }

  private:
    void send(const AVFrame* frame);
    // Throws the file's own sentence when writing it failed, else ff::check's.
    void checkWritten(int code) const;

    FileOutput file_;
    ff::OutputContext output_; // its I/O is file_'s, detached before either is closed
    ff::CodecContext encoder_;
    ff::Frame frame_;
    ff::Packet packet_;
    std::int64_t frames_ = 0;
};

} // namespace lumenvale::edit
