#pragma once

// The source frames a GIF shows: for each requested source time, the decoded frame
// nearest to it. Times are usually requested in rising order a few frames apart, so
// frames are decoded one after the other; the movie is sought only when a time lies
// behind the frames decoded, or so far ahead that a keyframe nearer to it can be
// decoded from. Internal to the edit area; used by one thread.

#include "edit/EncodeStreamDecoder.h"
#include "edit/SourceMovie.h"

#include <deque>

namespace lumenvale::edit {

class GifFramePicker {
  public:
    explicit GifFramePicker(SourceMovie& movie);

    // The frame nearest to `sourceSeconds`; the movie's first or last frame for a time
    // before or after it. Valid until the next call. Throws MediaError when the movie
    // has no decodable frame at all.
    const AVFrame& nearest(double sourceSeconds);

  private:
    double startOf(const ff::Frame& frame) const;
    bool decodeNext();
    bool keyframeBetween(double fromSeconds, double toSeconds) const;
    void seek(double sourceSeconds);

    SourceMovie& movie_;
    AVStream* stream_;
    StreamDecoder decoder_;
    ff::Packet packet_;
    std::deque<ff::Frame> decoded_; // decoded but not yet looked at, in order
    ff::Frame before_;              // the latest frame looked at
    ff::Frame after_;               // the frame after it, once decoded
    bool ended_ = false;
};

} // namespace lumenvale::edit
