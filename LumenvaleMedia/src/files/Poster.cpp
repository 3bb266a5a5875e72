#include "files/Poster.h"

#include "LumenvaleMedia/RecordingFiles.h"
#include "ffmpeg/Handles.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <cmath>

namespace lumenvale::files {
namespace {

constexpr double posterLongestSide = 640;

// The displayed size of a picture, its pixels stretched by their aspect ratio.
double displayWidth(const AVFrame& frame, AVRational streamAspect) {
    const AVRational aspect =
        frame.sample_aspect_ratio.num > 0 ? frame.sample_aspect_ratio : streamAspect;
    return aspect.num > 0 && aspect.den > 0 ? frame.width * av_q2d(aspect) : frame.width;
}

Image toImage(const AVFrame& frame, AVRational streamAspect) {
    const double width = displayWidth(frame, streamAspect);
    const double scale = std::min(1.0, posterLongestSide / std::max(width, double(frame.height)));
    const int targetWidth = std::max(1, static_cast<int>(std::lround(width * scale)));
    const int targetHeight = std::max(1, static_cast<int>(std::lround(frame.height * scale)));
    ff::Sws scaler(sws_getContext(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), targetWidth,
        targetHeight, AV_PIX_FMT_RGBA, SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) {
        throw MediaError("The poster frame has a format Lumenvale can’t convert.");
    }
    // The picture's own matrix and range (BT.601 limited for recordings), to full-range RGB.
    const int matrix =
        frame.colorspace != AVCOL_SPC_UNSPECIFIED ? frame.colorspace : SWS_CS_DEFAULT;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(matrix),
                             frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    Image image;
    image.size = PixelSize{targetWidth, targetHeight};
    image.rgba.resize(static_cast<std::size_t>(targetWidth) *
                      static_cast<std::size_t>(targetHeight) * 4);
    std::uint8_t* planes[4] = {image.rgba.data(), nullptr, nullptr, nullptr};
    int strides[4] = {targetWidth * 4, 0, 0, 0};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    return image;
}

// Turns the image by a multiple of 90 degrees (clockwise), as the movie's display
// matrix asks players to.
Image rotated(const Image& image, int clockwiseQuarters) {
    const int quarters = ((clockwiseQuarters % 4) + 4) % 4;
    if (quarters == 0) {
        return image;
    }
    const std::int64_t width = image.size.width;
    const std::int64_t height = image.size.height;
    Image turned;
    turned.size = quarters == 2 ? image.size : PixelSize{height, width};
    turned.rgba.resize(image.rgba.size());
    for (std::int64_t y = 0; y < height; ++y) {
        for (std::int64_t x = 0; x < width; ++x) {
            std::int64_t toX = x;
            std::int64_t toY = y;
            if (quarters == 1) {
                toX = height - 1 - y;
                toY = x;
            } else if (quarters == 2) {
                toX = width - 1 - x;
                toY = height - 1 - y;
            } else {
                toX = y;
                toY = width - 1 - x;
            }
            const auto from = static_cast<std::size_t>((y * width + x) * 4);
            const auto to = static_cast<std::size_t>((toY * turned.size.width + toX) * 4);
            std::copy_n(image.rgba.begin() + static_cast<std::ptrdiff_t>(from), 4,
                        turned.rgba.begin() + static_cast<std::ptrdiff_t>(to));
        }
    }
    return turned;
}

int clockwiseQuarters(const AVStream& stream) {
    const auto* matrix = reinterpret_cast<const std::int32_t*>(
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) {
        return 0;
    }
    // av_display_rotation_get: counterclockwise degrees.
    const double degrees = av_display_rotation_get(matrix);
    return std::isfinite(degrees) ? static_cast<int>(std::lround(-degrees / 90)) : 0;
}

Image posterAt(const ff::InputContext& input, double timeSeconds) {
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) {
        throw MediaError("The movie has no picture.");
    }
    AVStream* stream = input->streams[index];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        throw MediaError("The movie’s picture can’t be decoded.");
    }
    ff::CodecContext decoder(avcodec_alloc_context3(codec));
    if (!decoder) {
        throw MediaError("Not enough memory to take the poster.");
    }
    ff::check(avcodec_parameters_to_context(decoder.get(), stream->codecpar),
              "Couldn’t take the poster");
    decoder->thread_count = 0;
    decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    ff::check(avcodec_open2(decoder.get(), codec, nullptr), "Couldn’t take the poster");
    for (unsigned other = 0; other < input->nb_streams; ++other) {
        input->streams[other]->discard =
            other == unsigned(index) ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }

    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    const std::int64_t target = start + av_rescale_q(std::llround(timeSeconds * AV_TIME_BASE),
                                                     AV_TIME_BASE_Q, stream->time_base);
    av_seek_frame(input.get(), index, target, AVSEEK_FLAG_BACKWARD); // from the start if it fails

    // The frame on screen at `target`: the last one that starts at or before it.
    ff::Frame shown;
    ff::Frame frame = ff::makeFrame();
    ff::Packet packet = ff::makePacket();
    bool draining = false;
    for (;;) {
        const int received = avcodec_receive_frame(decoder.get(), frame.get());
        if (received == 0) {
            const std::int64_t time = frame->best_effort_timestamp;
            if (shown && time != AV_NOPTS_VALUE && time > target) {
                break;
            }
            shown = std::move(frame);
            frame = ff::makeFrame();
            if (time != AV_NOPTS_VALUE && time > target) {
                break; // the first frame comes after the target: take it
            }
            continue;
        }
        if (received == AVERROR_EOF || (received == AVERROR(EAGAIN) && draining)) {
            break;
        }
        if (received != AVERROR(EAGAIN)) {
            ff::check(received, "Couldn’t take the poster");
        }
        const int read = av_read_frame(input.get(), packet.get());
        if (read < 0) {
            draining = true;
            avcodec_send_packet(decoder.get(), nullptr);
            continue;
        }
        if (packet->stream_index == index) {
            avcodec_send_packet(decoder.get(), packet.get()); // a damaged packet is skipped
        }
        av_packet_unref(packet.get());
    }
    if (!shown) {
        throw MediaError("The movie has no frame to show.");
    }
    return rotated(toImage(*shown, stream->sample_aspect_ratio), clockwiseQuarters(*stream));
}

} // namespace

std::optional<Image> posterOf(ff::InputContext movie, double durationSeconds) {
    try {
        return posterAt(movie, RecordingName::posterTime(durationSeconds));
    } catch (const std::exception&) {
        return std::nullopt; // a movie without a poster is still a movie
    }
}

} // namespace lumenvale::files

namespace lumenvale {

std::optional<Image> RecordingFiles::poster(const std::filesystem::path& movie,
                                            double durationSeconds) {
    try {
        return files::posterOf(ff::openInput(movie, ff::InputProbing::headerOnly), durationSeconds);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace lumenvale
