// The GIF export: the first 30 seconds of the edit (at most) at 10 frames a second,
// each frame the source frame nearest to its output time, cropped, scaled to at most
// 640 pixels on the longer side (never enlarged), given a palette and dithered
// (GifQuantizer), and written by FFmpeg's GIF encoder and muxer (GifWriter).

#include "LumenvaleMedia/EditRenderer.h"
#include "edit/EncodeVideoTrack.h"
#include "edit/GifFramePicker.h"
#include "edit/GifQuantizer.h"
#include "edit/GifWriter.h"
#include "edit/SourceMovie.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {
namespace {

constexpr double gifFramesPerSecond = 10;
constexpr double gifMaxSeconds = 30;
constexpr int gifMaxSide = 640;

// The size of the GIF for a kept picture: at most gifMaxSide on the longer side,
// the shape kept, never enlarged.
PixelSize gifSize(const PixelRect& kept) {
    const int longer = std::max(kept.width, kept.height);
    if (longer <= gifMaxSide) {
        return {kept.width, kept.height};
    }
    const double scale = static_cast<double>(gifMaxSide) / longer;
    return {std::max<std::int64_t>(1, std::lround(kept.width * scale)),
            std::max<std::int64_t>(1, std::lround(kept.height * scale))};
}

// Crops a decoded frame and scales it to packed RGB of the GIF's size.
class GifPictureScaler {
  public:
    GifPictureScaler(const PixelRect& kept, PixelSize sourceSize, PixelSize size)
        : kept_(kept), sourceSize_(sourceSize), width_(static_cast<int>(size.width)),
          height_(static_cast<int>(size.height)),
          rgb_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 3) {}

    const std::uint8_t* convert(const AVFrame& decoded) {
        ff::Frame frame(av_frame_clone(&decoded));
        if (!frame) {
            throw MediaError("Not enough memory to make the GIF.");
        }
        if (frame->width == sourceSize_.width && frame->height == sourceSize_.height) {
            frame->crop_left = static_cast<std::size_t>(kept_.x);
            frame->crop_top = static_cast<std::size_t>(kept_.y);
            frame->crop_right = static_cast<std::size_t>(frame->width - kept_.x - kept_.width);
            frame->crop_bottom = static_cast<std::size_t>(frame->height - kept_.y - kept_.height);
            ff::check(av_frame_apply_cropping(frame.get(), AV_FRAME_CROP_UNALIGNED),
                      "Couldn’t crop the GIF’s picture");
        }
        const bool shrinks = frame->width != width_ || frame->height != height_;
        scaler_.reset(sws_getCachedContext(
            scaler_.release(), frame->width, frame->height,
            static_cast<AVPixelFormat>(frame->format), width_, height_, AV_PIX_FMT_RGB24,
            (shrinks ? SWS_LANCZOS : SWS_POINT) | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
            nullptr, nullptr));
        if (!scaler_) {
            throw MediaError("The movie’s picture format can’t be converted.");
        }
        describeColours(*frame);
        std::uint8_t* planes[4] = {rgb_.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {width_ * 3, 0, 0, 0};
        sws_scale(scaler_.get(), frame->data, frame->linesize, 0, frame->height, planes, strides);
        return rgb_.data();
    }

    int stride() const { return width_ * 3; }

  private:
    // YUV pictures are read with their own matrix and range (BT.601 when untagged).
    void describeColours(const AVFrame& frame) {
        const AVPixFmtDescriptor* format =
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
        if (format == nullptr || (format->flags & AV_PIX_FMT_FLAG_RGB) != 0) {
            return;
        }
        const int matrix = frame.colorspace == AVCOL_SPC_BT709        ? SWS_CS_ITU709
                           : frame.colorspace == AVCOL_SPC_BT2020_NCL ? SWS_CS_BT2020
                                                                      : SWS_CS_DEFAULT;
        const int fullRange = frame.color_range == AVCOL_RANGE_JPEG ||
                              frame.format == AV_PIX_FMT_YUVJ420P ||
                              frame.format == AV_PIX_FMT_YUVJ444P;
        sws_setColorspaceDetails(scaler_.get(), sws_getCoefficients(matrix), fullRange,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }

    PixelRect kept_;
    PixelSize sourceSize_;
    int width_;
    int height_;
    ff::Sws scaler_;
    std::vector<std::uint8_t> rgb_;
};

} // namespace
} // namespace lumenvale::edit

namespace lumenvale {

std::filesystem::path EditRenderer::exportGIF(const std::filesystem::path& source,
                                              const EditDecision& edit,
                                              const Destination& destination,
                                              const Progress& progress,
                                              const std::atomic<bool>* cancel) {
    edit::SourceMovie movie = edit::openSourceMovie(source);
    const Built built = edit::resolveEdit(movie, edit);
    const std::vector<double> times =
        GIFPlan::times(edit.outputDuration(), edit::gifFramesPerSecond, edit::gifMaxSeconds);
    const edit::PixelRect kept = edit::keptPixels(built);
    const PixelSize size = edit::gifSize(kept);
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);

    edit::GifFramePicker picker(movie);
    edit::GifPictureScaler scaler(kept, built.videoSize, size);
    edit::GifQuantizer quantizer(width, height);
    edit::GifWriter writer(destination, width, height);
    for (std::size_t i = 0; i < times.size(); ++i) {
        if (cancel != nullptr && cancel->load(std::memory_order_relaxed)) {
            throw MediaError(edit::exportCancelled);
        }
        const Location at = edit.locate(times[i]);
        const std::uint8_t* rgb = scaler.convert(picker.nearest(at.source));
        writer.write(quantizer.quantize(rgb, scaler.stride()));
        if (progress && i + 1 < times.size()) {
            progress(static_cast<double>(i + 1) / static_cast<double>(times.size()));
        }
    }
    writer.finish();
    edit::checkUnchanged(movie);
    std::filesystem::path written = writer.publish();
    if (progress) {
        progress(1.0);
    }
    return written;
}

} // namespace lumenvale
