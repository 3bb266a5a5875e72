#include "edit/VideoReencode.h"

#include <algorithm>

namespace lumenvale::edit {

VideoReencode::VideoReencode(const AVStream* source, FrameEncoder& encoder, VideoOutput& output)
    : source_(source), decoder_(source), encoder_(encoder), output_(output),
      startFrame_(ff::makeFrame()) {}

bool VideoReencode::before(std::int64_t sourceTimestamp, std::int64_t ticks) const {
    return av_compare_ts(sourceTimestamp, source_->time_base, ticks, tickTimeBase) < 0;
}

void VideoReencode::begin(const std::optional<Place>& place) {
    decoder_.reset();
    av_frame_unref(startFrame_.get());
    holdingStart_ = false;
    if (!place) {
        phase_ = Phase::done;
        return;
    }
    place_ = *place;
    endTimestamp_ = av_rescale_q(place_.outputEnd(), tickTimeBase, output_.timeBase());
    phase_ = Phase::findingStart;
}

void VideoReencode::take(AVPacket* packet) {
    if (phase_ == Phase::done) {
        return;
    }
    decoder_.decode(packet, [this](AVFrame* frame) { placeFrame(frame); });
}

void VideoReencode::placeFrame(AVFrame* frame) {
    if (phase_ == Phase::done || frame->pts == AV_NOPTS_VALUE) {
        return;
    }
    if (phase_ == Phase::findingStart) {
        if (av_compare_ts(frame->pts, source_->time_base, place_.sourceStart, tickTimeBase) <= 0) {
            av_frame_unref(startFrame_.get());
            ff::check(av_frame_ref(startFrame_.get(), frame),
                      "Not enough memory to encode the video");
            holdingStart_ = true;
            return;
        }
        phase_ = Phase::encoding;
        if (holdingStart_) {
            encode(startFrame_.get(), startFrame_->pts);
            av_frame_unref(startFrame_.get());
            holdingStart_ = false;
        }
    }
    if (!before(frame->pts, place_.sourceEnd)) {
        phase_ = Phase::done;
        return;
    }
    encode(frame, frame->pts);
}

void VideoReencode::encode(const AVFrame* frame, std::int64_t sourceTimestamp) {
    const AVRational out = output_.timeBase();
    const std::int64_t sinceStart = av_rescale_q(sourceTimestamp, source_->time_base, out) -
                                    av_rescale_q(place_.sourceStart, tickTimeBase, out);
    const std::int64_t placed =
        av_rescale_q(place_.outputStart, tickTimeBase, out) + std::max<std::int64_t>(0, sinceStart);
    encoder_.encode(frame, placed, [this](AVPacket* packet) { output_.emit(packet, packet->pts); });
}

void VideoReencode::end() {
    if (phase_ != Phase::done) {
        decoder_.decode(nullptr, [this](AVFrame* frame) { placeFrame(frame); });
    }
    if (holdingStart_) {
        phase_ = Phase::encoding;
        encode(startFrame_.get(), startFrame_->pts);
        av_frame_unref(startFrame_.get());
        holdingStart_ = false;
    }
    phase_ = Phase::done;
}

void VideoReencode::finish() {
    encoder_.flush([this](AVPacket* packet) { output_.emit(packet, packet->pts); });
    output_.finish(endTimestamp_);
}

} // namespace lumenvale::edit
