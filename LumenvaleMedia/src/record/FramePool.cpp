#include "record/FramePool.h"

namespace lumenvale::record {

FramePool::FramePool(PixelSize size, int count) : strideBytes_(size.width * 4) {
    buffers_.resize(static_cast<std::size_t>(count));
    for (int slot = count - 1; slot >= 0; --slot) {
        buffers_[static_cast<std::size_t>(slot)].resize(
            static_cast<std::size_t>(strideBytes_ * size.height));
        free_.push_back(slot);
    }
}

std::optional<int> FramePool::acquire() {
    if (free_.empty()) {
        return std::nullopt;
    }
    const int slot = free_.back();
    free_.pop_back();
    return slot;
}

void FramePool::release(int slot) {
    free_.push_back(slot);
}

} // namespace lumenvale::record
