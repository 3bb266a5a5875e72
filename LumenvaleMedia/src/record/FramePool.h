#pragma once

#include "LumenvaleKit/PixelSize.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace lumenvale::record {

// A fixed set of BGRA picture buffers, allocated once per recording, in which the
// capture thread parks frames for the writer. When every buffer is in use the
// writer is behind and the next frame is dropped rather than waited for.
//
// Threads: not locked itself; the pipeline guards it with its queue lock.
class FramePool {
  public:
    FramePool(PixelSize size, int count);

    std::optional<int> acquire();
    void release(int slot);

    std::uint8_t* data(int slot) { return buffers_[static_cast<std::size_t>(slot)].data(); }
    std::int64_t strideBytes() const { return strideBytes_; }

  private:
    std::int64_t strideBytes_;
    std::vector<std::vector<std::uint8_t>> buffers_;
    std::vector<int> free_;
};

} // namespace lumenvale::record
