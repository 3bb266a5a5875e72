#pragma once

#include "LumenvaleKit/PixelSize.h"
#include "ffmpeg/Handles.h"

#include <optional>
#include <vector>

namespace lumenvale::record {

// A fixed set of yuv420p pictures, allocated once per recording, in which the
// capture thread parks converted frames for the writer. When every picture is in
// use the writer is behind and the next frame is dropped rather than waited for.
//
// The depth is about a third of a second of frames (at least 4), within a memory
// budget: encoders stall now and then (a busy machine, x264's frame threads), and
// the queue rides that out without dropping. Pictures are kept in I420 rather than
// BGRA, which holds 8/3 as many frames in the same memory.
//
// Threads: not locked itself; the pipeline guards acquire() and release().
// One yuv420p picture of `size` in the recording's colour tags, its pages touched.
ff::Frame makeRecordingPicture(PixelSize size);

class FramePool {
  public:
    static constexpr std::int64_t budgetBytes = 192LL * 1024 * 1024;

    FramePool(PixelSize size, int fps);

    int depth() const { return static_cast<int>(frames_.size()); }
    std::optional<int> acquire();
    void release(int slot);
    // The slot's picture; only its holder touches it.
    AVFrame& frame(int slot) { return *frames_[static_cast<std::size_t>(slot)]; }

  private:
    std::vector<ff::Frame> frames_;
    std::vector<int> free_;
};

} // namespace lumenvale::record
