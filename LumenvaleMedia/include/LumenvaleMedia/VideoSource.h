#pragma once

#include "LumenvaleKit/PixelSize.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace lumenvale {

// Rows [top, bottom) of a picture, top row 0.
struct RowSpan {
    std::int64_t top = 0;
    std::int64_t bottom = 0;
    friend bool operator==(const RowSpan&, const RowSpan&) = default;
};

// How much of a frame's picture may differ from the frame handed over before it.
enum class FrameChange {
    // Anything may have changed (the first frame, or the source does not know).
    whole,
    // Only the rows in VideoFrame::changedRows (none at all: the same picture again).
    rows,
};

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
    // What changed since the previous frame handed over: a consumer that keeps what it
    // made of that frame may redo only these rows. `bgra` always holds the whole
    // picture. The spans are sorted, apart, start and end on even rows (or the last
    // row), and are valid only during the handler call.
    FrameChange change = FrameChange::whole;
    std::span<const RowSpan> changedRows;
};

// Counters of a running source, read at any time from any thread.
//
// - delivered: frames handed to the handler, repeated ones included.
// - dropped: frame numbers skipped because the source fell a whole frame interval
//   or more behind its schedule; none of them reached the handler.
// - repeated: due frames for which nothing could be read (the grab failed, or the
//   target could not be read, such as a minimized window), so the previous
//   picture (black before the first) was handed over again under the new number.
//   A screen that simply did not change is not a repeat.
// - unchanged: delivered frames for which nothing was read at all, because nothing
//   on the target, the pointer or the click rings changed since the frame before
//   (the previous picture again, with FrameChange::rows and no rows).
struct CaptureStats {
    std::int64_t delivered = 0;
    std::int64_t dropped = 0;
    std::int64_t repeated = 0;
    std::int64_t unchanged = 0;
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
