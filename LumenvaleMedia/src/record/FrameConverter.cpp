#include "record/FrameConverter.h"

#include <algorithm>
#include <libyuv/convert.h>

namespace lumenvale::record {

FrameConverter::FrameConverter(PixelSize size) : size_(size) {
    if (size.width * size.height >= splitFromPixels) {
        hasHelper_ = true;
        helper_ = std::thread([this] { helperLoop(); });
    }
}

FrameConverter::~FrameConverter() {
    if (helper_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            quit_ = true;
        }
        wake_.notify_all();
        helper_.join();
    }
}

void FrameConverter::convertRows(const Job& job) const {
    AVFrame& out = *job.destination;
    const int chromaRow = job.firstRow / 2;
    libyuv::ARGBToI420(
        job.bgra + job.strideBytes * job.firstRow, static_cast<int>(job.strideBytes),
        out.data[0] + static_cast<std::ptrdiff_t>(out.linesize[0]) * job.firstRow, out.linesize[0],
        out.data[1] + static_cast<std::ptrdiff_t>(out.linesize[1]) * chromaRow, out.linesize[1],
        out.data[2] + static_cast<std::ptrdiff_t>(out.linesize[2]) * chromaRow, out.linesize[2],
        static_cast<int>(size_.width), job.rowCount);
}

void FrameConverter::convert(const std::uint8_t* bgra, std::int64_t strideBytes,
                             AVFrame& destination) {
    convertSpan(bgra, strideBytes, destination, 0, static_cast<int>(size_.height));
}

void FrameConverter::convert(const std::uint8_t* bgra, std::int64_t strideBytes,
                             AVFrame& destination, std::span<const RowSpan> rows) {
    for (const RowSpan& span : rows) {
        const std::int64_t top = std::clamp<std::int64_t>(span.top / 2 * 2, 0, size_.height);
        const std::int64_t bottom = std::clamp<std::int64_t>(span.bottom, top, size_.height);
        if (bottom > top) {
            convertSpan(bgra, strideBytes, destination, static_cast<int>(top),
                        static_cast<int>(bottom - top));
        }
    }
}

void FrameConverter::convertSpan(const std::uint8_t* bgra, std::int64_t strideBytes,
                                 AVFrame& destination, int firstRow, int rowCount) {
    const Job job{bgra, strideBytes, &destination, firstRow, rowCount};
    if (!hasHelper_ || size_.width * rowCount < splitFromPixels) {
        convertRows(job);
        return;
    }
    // The upper half here, the lower half (from an even row) on the helper.
    const int upperRows = rowCount / 4 * 2;
    {
        std::lock_guard lock(mutex_);
        job_ = {bgra, strideBytes, &destination, firstRow + upperRows, rowCount - upperRows};
        hasJob_ = true;
    }
    wake_.notify_all();
    convertRows({bgra, strideBytes, &destination, firstRow, upperRows});
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !hasJob_; });
}

void FrameConverter::helperLoop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return hasJob_ || quit_; });
        if (quit_) {
            return;
        }
        const Job job = job_;
        lock.unlock();
        convertRows(job);
        lock.lock();
        hasJob_ = false;
        wake_.notify_all();
    }
}

} // namespace lumenvale::record
