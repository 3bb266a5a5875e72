#include "edit/EncodeVideoTrack.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {
namespace {

// Two instants closer than this are the same instant (timestamps of different time
// bases round differently).
constexpr double sameInstantSeconds = 1e-4;

constexpr const char* encodeFailure = "Couldn’t encode the video";

void setOption(AVCodecContext* context, const char* key, const char* value) {
    ff::check(av_opt_set(context->priv_data, key, value, 0),
              "The video encoder refused the setting " + std::string(key));
}

bool isPlanar420(int format) {
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P;
}

} // namespace

ff::CodecContext makeExportVideoEncoder(Codec codec, PixelSize size, int framesPerSecond,
                                        const AVCodecParameters& source) {
    const char* name = codec == Codec::hevc ? "libx265" : "libx264";
    const AVCodec* encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr) {
        throw MediaError("This system can’t encode " + std::string(title(codec)) + " video.");
    }
    if (size.width < 2 || size.height < 2 || size.width > 16384 || size.height > 16384 ||
        framesPerSecond < 1 || framesPerSecond > 1000) {
        throw MediaError("The video size " + std::to_string(size.width) + " × " +
                         std::to_string(size.height) + " can’t be encoded.");
    }
    ff::CodecContext context(avcodec_alloc_context3(encoder));
    if (!context) {
        throw MediaError("Not enough memory to encode the video.");
    }
    context->width = static_cast<int>(size.width);
    context->height = static_cast<int>(size.height);
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = AVRational{1, framesPerSecond};
    context->framerate = AVRational{framesPerSecond, 1};
    context->sample_aspect_ratio = AVRational{1, 1};
    context->gop_size = 2 * framesPerSecond;
    context->color_range =
        source.format == AV_PIX_FMT_YUVJ420P ? AVCOL_RANGE_JPEG : source.color_range;
    context->color_primaries = source.color_primaries;
    context->color_trc = source.color_trc;
    context->colorspace = source.color_space;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (codec == Codec::hevc) {
        context->codec_tag = MKTAG('h', 'v', 'c', '1');
        setOption(context.get(), "preset", "fast");
        setOption(context.get(), "crf", "19");
        setOption(context.get(), "x265-params", "log-level=error");
    } else {
        context->codec_tag = MKTAG('a', 'v', 'c', '1');
        setOption(context.get(), "preset", "medium");
        setOption(context.get(), "crf", "17");
    }
    ff::check(avcodec_open2(context.get(), encoder, nullptr),
              "Couldn’t start the " + std::string(title(codec)) + " encoder");
    return context;
}

PixelRect keptPixels(const EditRenderer::Built& built) {
    const auto width = static_cast<int>(built.videoSize.width);
    const auto height = static_cast<int>(built.videoSize.height);
    PixelRect kept{0, 0, width & ~1, height & ~1};
    if (built.edit.crop) {
        const Rect pixels = EditDecision::cropPixels(*built.edit.crop, built.videoSize);
        kept = {static_cast<int>(pixels.x), static_cast<int>(pixels.y),
                static_cast<int>(pixels.width), static_cast<int>(pixels.height)};
    }
    if (kept.width > width || kept.height > height || kept.width < 2 || kept.height < 2) {
        throw MediaError("The picture is too small to crop.");
    }
    // A crop at the far edge keeps its size and moves back inside the picture.
    kept.x = std::min(kept.x, (width - kept.width) & ~1);
    kept.y = std::min(kept.y, (height - kept.height) & ~1);
    return kept;
}

VideoTrackEncode::VideoTrackEncode(const AVStream* source, const std::string& movieName,
                                   const EditRenderer::Built& built, Codec codec,
                                   MovieWriter& writer)
    : streamIndex_(built.tracks.front().streamIndex), decoder_(source, movieName), writer_(writer),
      kept_(keptPixels(built)), sourceSize_(built.videoSize), speed_(built.edit.speed),
      framesPerSecond_(static_cast<int>(built.frameRate)), packet_(ff::makePacket()) {
    encoder_ = makeExportVideoEncoder(codec, {kept_.width, kept_.height}, framesPerSecond_,
                                      *source->codecpar);
    outputStream_ = writer_.addEncodedStream(source, *encoder_, encoder_->time_base);
}

void VideoTrackEncode::beginClip(const EditRenderer::Segment* segment) {
    decoder_.reset();
    current_.reset();
    segment_ = segment;
    segmentDone_ = false;
}

void VideoTrackEncode::take(const AVPacket& packet) {
    decoder_.decode(&packet, [this](AVFrame* frame) { onFrame(frame); });
}

bool VideoTrackEncode::inSegment(std::int64_t index) const {
    const double output = static_cast<double>(index) * speed_ / framesPerSecond_;
    const double end = segment_->outputStart + (segment_->sourceEnd - segment_->sourceStart);
    return output < end - 1e-9;
}

double VideoTrackEncode::sourceSecondsOf(std::int64_t index) const {
    const double output = static_cast<double>(index) * speed_ / framesPerSecond_;
    return segment_->sourceStart + (output - segment_->outputStart);
}

void VideoTrackEncode::onFrame(AVFrame* frame) {
    if (segment_ == nullptr || segmentDone_) {
        return;
    }
    const double starts = ff::seconds(frame->pts, decoder_.timeBase());
    // Every instant before this frame starts shows the frame before it.
    while (inSegment(next_)) {
        const double instant = sourceSecondsOf(next_);
        if (instant >= starts - sameInstantSeconds) {
            break;
        }
        const bool inGap = instant < segment_->sourceStart - sameInstantSeconds;
        emit(inGap && previous_ ? previous_.get() : current_ ? current_.get() : frame);
    }
    current_.reset(av_frame_clone(frame));
    if (!current_) {
        throw MediaError("Not enough memory to encode the video.");
    }
    if (starts >= segment_->sourceEnd - sameInstantSeconds) {
        segmentDone_ = true;
    }
}

void VideoTrackEncode::endClip(ClipEnd end) {
    if (segment_ == nullptr) {
        return;
    }
    if (end == ClipEnd::endOfFile) {
        decoder_.drain([this](AVFrame* frame) { onFrame(frame); });
    }
    const AVFrame* last = current_ ? current_.get() : previous_.get();
    while (inSegment(next_)) {
        if (last != nullptr) {
            emit(last);
        } else {
            ++next_; // nothing of this clip could be decoded: its time stays empty
        }
    }
    if (current_) {
        previous_ = std::move(current_);
    }
    segment_ = nullptr;
}

void VideoTrackEncode::emit(const AVFrame* picture) {
    ff::Frame frame(av_frame_clone(picture));
    if (!frame) {
        throw MediaError("Not enough memory to encode the video.");
    }
    if (frame->width == sourceSize_.width && frame->height == sourceSize_.height) {
        frame->crop_left = static_cast<std::size_t>(kept_.x);
        frame->crop_top = static_cast<std::size_t>(kept_.y);
        frame->crop_right = static_cast<std::size_t>(frame->width - kept_.x - kept_.width);
        frame->crop_bottom = static_cast<std::size_t>(frame->height - kept_.y - kept_.height);
        ff::check(av_frame_apply_cropping(frame.get(), AV_FRAME_CROP_UNALIGNED), encodeFailure);
    }
    if (!isPlanar420(frame->format) || frame->width != kept_.width ||
        frame->height != kept_.height) {
        // Another pixel format, or a picture whose size changed midway: converted
        // (and, for the latter, scaled whole) to the encoder's.
        scaler_.reset(sws_getCachedContext(scaler_.release(), frame->width, frame->height,
                                           static_cast<AVPixelFormat>(frame->format), kept_.width,
                                           kept_.height, AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr,
                                           nullptr, nullptr));
        if (!scaler_) {
            throw MediaError("The movie’s picture format can’t be converted.");
        }
        ff::Frame converted = ff::makeFrame();
        converted->format = AV_PIX_FMT_YUV420P;
        converted->width = kept_.width;
        converted->height = kept_.height;
        ff::check(av_frame_get_buffer(converted.get(), 0), "Not enough memory to encode the video");
        sws_scale(scaler_.get(), frame->data, frame->linesize, 0, frame->height, converted->data,
                  converted->linesize);
        frame = std::move(converted);
    }
    frame->format = AV_PIX_FMT_YUV420P;
    frame->color_range = encoder_->color_range;
    frame->color_primaries = encoder_->color_primaries;
    frame->color_trc = encoder_->color_trc;
    frame->colorspace = encoder_->colorspace;
    frame->sample_aspect_ratio = AVRational{1, 1};
    // The encoder chooses frame types itself.
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    frame->key_frame = 0;
    frame->pts = next_++;
    send(frame.get());
}

void VideoTrackEncode::send(const AVFrame* frame) {
    ff::check(avcodec_send_frame(encoder_.get(), frame), encodeFailure);
    while (true) {
        const int received = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, encodeFailure);
        if (packet_->duration <= 0) {
            packet_->duration = 1;
        }
        writer_.write(outputStream_, packet_.get());
        av_packet_unref(packet_.get());
    }
}

void VideoTrackEncode::finish() {
    send(nullptr);
}

} // namespace lumenvale::edit
