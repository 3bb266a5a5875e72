#pragma once

#include "LumenvaleKit/PixelSize.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace lumenvale {

// One captured picture, already at the movie's pixel size, in BGRA (8 bits per
// channel, alpha ignored), top row first. The pixels are valid only during the
// handler call that receives the frame.
struct VideoFrame {
    const std::uint8_t* bgra = nullptr;
    std::int64_t strideBytes = 0;
    PixelSize size;
    // Capture time on the steady (monotonic) clock.
    std::chrono::steady_clock::duration time{};
    // Frame number since start(): frame n is due at start + n / fps. Numbers skipped
    // by the source are frames it could not deliver in time (dropped).
    std::int64_t index = 0;
};

// Counters of a running source, read at any time from any thread.
//
// - delivered: frames handed to the handler, repeated ones included.
// - dropped: frame numbers skipped because the source fell a whole frame interval
//   or more behind its schedule; none of them reached the handler.
// - repeated: due frames for which nothing could be read (the grab failed, or the
//   target could not be read, such as a minimized window), so the previous
//   picture (black before the first) was handed over again under the new number.
//   A screen that simply did not change is not a repeat: it is captured afresh.
struct CaptureStats {
    std::int64_t delivered = 0;
    std::int64_t dropped = 0;
    std::int64_t repeated = 0;
};

// A source of paced video frames (the screen, an area or a window).
//
// Threads: start() and stop() are called from one controlling thread. The frame
// handler runs on the source's own capture thread and must return quickly. The
// stopped handler runs on the capture thread at most once, when the source ends by
// itself (window closed, display gone); its argument is the user-facing reason.
class VideoSource {
  public:
    using FrameHandler = std::function<void(const VideoFrame&)>;
    using StoppedHandler = std::function<void(const std::string& reason)>;

    virtual ~VideoSource() = default;

    // The movie's pixel size, fixed for the life of the source.
    virtual PixelSize size() const = 0;
    virtual int fps() const = 0;
    // Starts capturing; throws MediaError when the capture cannot start.
    virtual void start(FrameHandler onFrame, StoppedHandler onStopped) = 0;
    // Stops capturing; no handler runs after it returns. Idempotent.
    virtual void stop() = 0;
    virtual CaptureStats stats() const = 0;
};

} // namespace lumenvale
