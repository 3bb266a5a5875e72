// Filmstrip thumbnails: `count` pictures at the centres of equal slices of the
// source, fitting 240 x 240. Made for speed: only the keyframe at or before each time
// is decoded (no frames after it, the loop filter skipped), a keyframe shared by
// several times is decoded once, and the picture is shrunk with libyuv's box filter
// straight from the decoder's YUV. Never throws: a picture that cannot be made is
// left out.

#include "LumenvaleMedia/EditRenderer.h"
#include "edit/EncodeStreamDecoder.h"
#include "ffmpeg/Handles.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <cmath>
#include <libyuv/convert_argb.h>
#include <libyuv/scale.h>
#include <optional>

namespace lumenvale::edit {
namespace {

constexpr int thumbnailMaxSide = 240;
// How many packets after a seek may pass without a keyframe before the time is given up.
constexpr int packetsBeforeGivingUp = 600;

PixelSize fittedSize(int width, int height) {
    const double scale = std::min({1.0, static_cast<double>(thumbnailMaxSide) / width,
                                   static_cast<double>(thumbnailMaxSide) / height});
    return {std::max<std::int64_t>(1, std::lround(width * scale)),
            std::max<std::int64_t>(1, std::lround(height * scale))};
}

double durationSeconds(const AVFormatContext& input, const AVStream& stream) {
    if (stream.duration != AV_NOPTS_VALUE && stream.duration > 0) {
        return ff::seconds(stream.duration, stream.time_base);
    }
    if (input.duration != AV_NOPTS_VALUE && input.duration > 0) {
        return ff::seconds(input.duration, AV_TIME_BASE_Q);
    }
    return 0;
}

// Shrinks a decoded picture into an RGBA image of `size`.
Image toImage(const AVFrame& frame, PixelSize size, ff::Sws& scaler) {
    Image image;
    image.size = size;
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);
    image.rgba.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    const int stride = width * 4;
    if (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P) {
        const int chromaWidth = (width + 1) / 2;
        const int chromaHeight = (height + 1) / 2;
        std::vector<std::uint8_t> planes(static_cast<std::size_t>(width * height) +
                                         2 * static_cast<std::size_t>(chromaWidth * chromaHeight));
        std::uint8_t* y = planes.data();
        std::uint8_t* u = y + width * height;
        std::uint8_t* v = u + chromaWidth * chromaHeight;
        libyuv::I420Scale(frame.data[0], frame.linesize[0], frame.data[1], frame.linesize[1],
                          frame.data[2], frame.linesize[2], frame.width, frame.height, y, width, u,
                          chromaWidth, v, chromaWidth, width, height, libyuv::kFilterBox);
        // libyuv's "ABGR" is R, G, B, A in memory.
        const bool fullRange =
            frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P;
        const auto convert = fullRange                             ? libyuv::J420ToABGR
                             : frame.colorspace == AVCOL_SPC_BT709 ? libyuv::H420ToABGR
                                                                   : libyuv::I420ToABGR;
        convert(y, width, u, chromaWidth, v, chromaWidth, image.rgba.data(), stride, width, height);
        return image;
    }
    scaler.reset(sws_getCachedContext(
        scaler.release(), frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
        width, height, AV_PIX_FMT_RGBA, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler) {
        return {};
    }
    std::uint8_t* planes[4] = {image.rgba.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {stride, 0, 0, 0};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    return image;
}

class ThumbnailMaker {
  public:
    explicit ThumbnailMaker(const std::filesystem::path& source)
        : input_(ff::openInput(source)), packet_(ff::makePacket()) {
        for (unsigned i = 0; i < input_->nb_streams; ++i) {
            const AVStream* stream = input_->streams[i];
            if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
                streamIndex_ = static_cast<int>(i);
                break;
            }
        }
        if (streamIndex_ < 0) {
            throw MediaError(RecError::nothingRecorded);
        }
        for (unsigned i = 0; i < input_->nb_streams; ++i) {
            if (static_cast<int>(i) != streamIndex_) {
                input_->streams[i]->discard = AVDISCARD_ALL;
            }
        }
        stream_ = input_->streams[streamIndex_];
        stream_->discard = AVDISCARD_NONKEY;
        decoder_.emplace(stream_, source.filename().string(), DecodeDepth::keyframesFast, 1);
    }

    double duration() const { return durationSeconds(*input_, *stream_); }

    // The picture of the keyframe at or before `seconds`; empty when there is none.
    const Image& pictureAt(double seconds) {
        const auto timestamp =
            static_cast<std::int64_t>(std::floor(seconds / av_q2d(stream_->time_base)));
        const int entry = av_index_search_timestamp(stream_, timestamp, AVSEEK_FLAG_BACKWARD);
        if (entry >= 0) {
            const AVIndexEntry* keyframe = avformat_index_get_entry(stream_, entry);
            if (keyframe != nullptr && lastKeyframe_ && *lastKeyframe_ == keyframe->timestamp) {
                return last_; // the same keyframe as the time before
            }
        }
        last_ = {};
        lastKeyframe_.reset();
        if (av_seek_frame(input_.get(), streamIndex_, timestamp, AVSEEK_FLAG_BACKWARD) < 0) {
            return last_;
        }
        decoder_->reset();
        for (int packets = 0; packets < packetsBeforeGivingUp; ++packets) {
            if (av_read_frame(input_.get(), packet_.get()) < 0) {
                break;
            }
            const bool key =
                packet_->stream_index == streamIndex_ && (packet_->flags & AV_PKT_FLAG_KEY) != 0;
            const std::int64_t at = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
            if (key) {
                decoder_->decode(packet_.get(), [&](AVFrame* frame) { keep(*frame, at); });
            }
            av_packet_unref(packet_.get());
            if (key) {
                decoder_->drain([&](AVFrame* frame) { keep(*frame, at); });
                break;
            }
        }
        return last_;
    }

  private:
    void keep(const AVFrame& frame, std::int64_t keyframeTimestamp) {
        if (!last_.isEmpty() || frame.width <= 0 || frame.height <= 0) {
            return;
        }
        last_ = toImage(frame, fittedSize(frame.width, frame.height), scaler_);
        if (!last_.isEmpty()) {
            lastKeyframe_ = keyframeTimestamp;
        }
    }

    ff::InputContext input_;
    int streamIndex_ = -1;
    AVStream* stream_ = nullptr;
    std::optional<StreamDecoder> decoder_;
    ff::Packet packet_;
    ff::Sws scaler_;
    Image last_;
    std::optional<std::int64_t> lastKeyframe_;
};

} // namespace
} // namespace lumenvale::edit

namespace lumenvale {

std::vector<EditRenderer::Thumbnail> EditRenderer::thumbnails(const std::filesystem::path& source,
                                                              int count) {
    std::vector<Thumbnail> result;
    if (count <= 0) {
        return result;
    }
    try {
        edit::ThumbnailMaker maker(source);
        const double duration = maker.duration();
        if (!(duration > 0)) {
            return result;
        }
        for (int i = 0; i < count; ++i) {
            // The centre of slice i, at a resolution of 1/600 s.
            const double centre = duration * (i + 0.5) / count;
            const double seconds = std::round(centre * 600) / 600;
            try {
                const Image& picture = maker.pictureAt(seconds);
                if (!picture.isEmpty()) {
                    result.push_back({seconds, picture});
                }
            } catch (const std::exception&) {
                // This picture is left out; the others may still be made.
            }
        }
    } catch (const std::exception&) {
        // A movie that can't be opened has no thumbnails.
    }
    // Times rise with i already; kept sorted in case rounding ever ties them.
    std::stable_sort(result.begin(), result.end(), [](const Thumbnail& a, const Thumbnail& b) {
        return a.timeSeconds < b.timeSeconds;
    });
    return result;
}

} // namespace lumenvale
