#pragma once

#include "LumenvaleKit/PixelSize.h"
#include "LumenvaleMedia/VideoSource.h"
#include "ffmpeg/Handles.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace lumenvale::record {

// Converts BGRA pictures to the encoder's I420 (yuv420p) with libyuv, BT.601 limited
// range (libyuv's ARGBToI420; libyuv's "ARGB" is B, G, R, A in memory): whole
// pictures, or only some rows of one into a picture that holds the rest already.
// Stretches of at least `splitFromPixels` are converted in two halves at once, the
// lower half on a helper thread of the converter's own, so a 4K frame does not hold
// the capture thread for long. No allocation per picture.
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
    // Converts only `rows` (whole rows of `bgra`; each span starts on an even row and
    // ends on an even row or the last) and leaves the rest of `destination` as it is.
    void convert(const std::uint8_t* bgra, std::int64_t strideBytes, AVFrame& destination,
                 std::span<const RowSpan> rows);

  private:
    struct Job {
        const std::uint8_t* bgra = nullptr;
        std::int64_t strideBytes = 0;
        AVFrame* destination = nullptr;
        int firstRow = 0;
        int rowCount = 0;
    };
    void convertRows(const Job& job) const;
    void convertSpan(const std::uint8_t* bgra, std::int64_t strideBytes, AVFrame& destination,
                     int firstRow, int rowCount);
    void helperLoop();

    PixelSize size_;
    bool hasHelper_ = false;

    std::mutex mutex_;
    std::condition_variable wake_;
    Job job_;
    bool hasJob_ = false;
    bool quit_ = false;
    std::thread helper_;
};

} // namespace lumenvale::record
