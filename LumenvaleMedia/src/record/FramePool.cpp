#include "record/FramePool.h"

#include <algorithm>

namespace lumenvale::record {

ff::Frame makeRecordingPicture(PixelSize size) {
    ff::Frame frame = ff::makeFrame();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = static_cast<int>(size.width);
    frame->height = static_cast<int>(size.height);
    frame->color_range = AVCOL_RANGE_MPEG;
    frame->color_primaries = AVCOL_PRI_SMPTE170M;
    frame->color_trc = AVCOL_TRC_SMPTE170M;
    frame->colorspace = AVCOL_SPC_SMPTE170M;
    ff::check(av_frame_get_buffer(frame.get(), 0), "Not enough memory to record the video");
    // Touched now, so the first frames of a recording do not pay for the pages.
    for (AVBufferRef* buffer : frame->buf) {
        if (buffer != nullptr) {
            std::fill_n(buffer->data, buffer->size, std::uint8_t{0});
        }
    }
    return frame;
}

FramePool::FramePool(PixelSize size, int fps) {
    const std::int64_t frameBytes = std::max<std::int64_t>(1, size.width * size.height * 3 / 2);
    const int depth = static_cast<int>(
        std::max<std::int64_t>(4, std::min<std::int64_t>(fps / 3, budgetBytes / frameBytes)));
    for (int slot = 0; slot < depth; ++slot) {
        frames_.push_back(makeRecordingPicture(size));
    }
    for (int slot = depth - 1; slot >= 0; --slot) {
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
