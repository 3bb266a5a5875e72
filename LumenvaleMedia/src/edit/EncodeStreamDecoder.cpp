#include "edit/EncodeStreamDecoder.h"

namespace lumenvale::edit {

StreamDecoder::StreamDecoder(const AVStream* stream, const std::string& movieName,
                             DecodeDepth depth, int threads)
    : frame_(ff::makeFrame()), timeBase_(stream->time_base), movieName_(movieName) {
    const bool isVideo = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    const std::string what = isVideo ? "picture" : "sound";
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        throw MediaError("This system can’t decode the " + what + " of “" + movieName_ + "”.");
    }
    context_.reset(avcodec_alloc_context3(codec));
    if (!context_) {
        throw MediaError("Not enough memory to decode the movie.");
    }
    ff::check(avcodec_parameters_to_context(context_.get(), stream->codecpar),
              "Couldn’t read the " + what + " of “" + movieName_ + "”");
    context_->pkt_timebase = stream->time_base;
    context_->thread_count = threads;
    if (depth == DecodeDepth::keyframesFast) {
        context_->skip_frame = AVDISCARD_NONKEY;
        context_->skip_loop_filter = AVDISCARD_ALL;
        context_->skip_idct = AVDISCARD_NONKEY;
        context_->flags2 |= AV_CODEC_FLAG2_FAST;
        // Frame threads would hold a keyframe back until more packets arrive.
        context_->thread_type = FF_THREAD_SLICE;
    }
    ff::check(avcodec_open2(context_.get(), codec, nullptr),
              "Couldn’t decode the " + what + " of “" + movieName_ + "”");
}

void StreamDecoder::decode(const AVPacket* packet, const FrameSink& sink) {
    const int sent = avcodec_send_packet(context_.get(), packet);
    // A damaged packet costs one picture or a few milliseconds of sound, not the export.
    if (sent < 0 && sent != AVERROR_INVALIDDATA && sent != AVERROR_EOF) {
        ff::check(sent, "Couldn’t decode “" + movieName_ + "”");
    }
    receive(sink);
}

void StreamDecoder::drain(const FrameSink& sink) {
    const int sent = avcodec_send_packet(context_.get(), nullptr);
    if (sent < 0 && sent != AVERROR_EOF) {
        ff::check(sent, "Couldn’t decode “" + movieName_ + "”");
    }
    receive(sink);
    avcodec_flush_buffers(context_.get());
}

void StreamDecoder::reset() {
    avcodec_flush_buffers(context_.get());
}

void StreamDecoder::receive(const FrameSink& sink) {
    while (true) {
        const int received = avcodec_receive_frame(context_.get(), frame_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        if (received == AVERROR_INVALIDDATA) {
            continue;
        }
        ff::check(received, "Couldn’t decode “" + movieName_ + "”");
        if (frame_->pts == AV_NOPTS_VALUE) {
            frame_->pts = frame_->best_effort_timestamp;
        }
        if (frame_->pts != AV_NOPTS_VALUE) {
            sink(frame_.get());
        }
        av_frame_unref(frame_.get());
    }
}

} // namespace lumenvale::edit
