#pragma once

#include "LumenvaleKit/PixelSize.h"
#include "ffmpeg/Handles.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace lumenvale::record {

// Converts BGRA pictures to the encoder's I420 (yuv420p) with libyuv, BT.601 limited
// range (libyuv's ARGBToI420; libyuv's "ARGB" is B, G, R, A in memory). Pictures of
// at least `splitFromPixels` are converted in two halves at once, the lower half on
// a helper thread of the converter's own, so a 4K frame does not hold the capture
// thread for long. No allocation per picture.
//
// Threads: convert() from one thread at a time (the capture thread).
class FrameConverter {
  public:
    static constexpr std::int64_t splitFromPixels = 2560 * 1440;

    explicit FrameConverter(PixelSize size);
    ~FrameConverter();
    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

    // `destination` must be a writable yuv420p frame of the converter's size.
    void convert(const std::uint8_t* bgra, std::int64_t strideBytes, AVFrame& destination);

  private:
    struct Job {
        const std::uint8_t* bgra = nullptr;
        std::int64_t strideBytes = 0;
        AVFrame* destination = nullptr;
    };
    void convertRows(const Job& job, int firstRow, int rowCount) const;
    void helperLoop();

    PixelSize size_;
    int splitRow_ = 0; // 0: no split; else the first row of the lower half (even)

    std::mutex mutex_;
    std::condition_variable wake_;
    Job job_;
    bool hasJob_ = false;
    bool quit_ = false;
    std::thread helper_;
};

} // namespace lumenvale::record
