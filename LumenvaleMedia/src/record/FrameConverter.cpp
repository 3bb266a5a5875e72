#include "record/FrameConverter.h"

#include <libyuv/convert.h>

namespace lumenvale::record {

FrameConverter::FrameConverter(PixelSize size) : size_(size) {
    if (size.width * size.height >= splitFromPixels) {
        splitRow_ = static_cast<int>(size.height / 4 * 2);
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

void FrameConverter::convertRows(const Job& job, int firstRow, int rowCount) const {
    AVFrame& out = *job.destination;
    const int chromaRow = firstRow / 2;
    libyuv::ARGBToI420(
        job.bgra + job.strideBytes * firstRow, static_cast<int>(job.strideBytes),
        out.data[0] + static_cast<std::ptrdiff_t>(out.linesize[0]) * firstRow, out.linesize[0],
        out.data[1] + static_cast<std::ptrdiff_t>(out.linesize[1]) * chromaRow, out.linesize[1],
        out.data[2] + static_cast<std::ptrdiff_t>(out.linesize[2]) * chromaRow, out.linesize[2],
        static_cast<int>(size_.width), rowCount);
}

void FrameConverter::convert(const std::uint8_t* bgra, std::int64_t strideBytes,
                             AVFrame& destination) {
    const Job job{bgra, strideBytes, &destination};
    const int height = static_cast<int>(size_.height);
    if (splitRow_ == 0) {
        convertRows(job, 0, height);
        return;
    }
    {
        std::lock_guard lock(mutex_);
        job_ = job;
        hasJob_ = true;
    }
    wake_.notify_all();
    convertRows(job, 0, splitRow_);
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
        convertRows(job, splitRow_, static_cast<int>(size_.height) - splitRow_);
        lock.lock();
        hasJob_ = false;
        wake_.notify_all();
    }
}

} // namespace lumenvale::record
