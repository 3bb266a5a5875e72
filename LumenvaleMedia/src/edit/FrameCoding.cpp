#include "edit/FrameCoding.h"

#include "record/VideoEncoder.h"

namespace lumenvale::edit {

FrameDecoder::FrameDecoder(const AVStream* stream)
    : frame_(ff::makeFrame()), padded_(ff::makePacket()) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        throw MediaError("This system can’t decode the movie’s video.");
    }
    context_.reset(avcodec_alloc_context3(codec));
    if (!context_) {
        throw MediaError("Not enough memory to decode the movie.");
    }
    ff::check(avcodec_parameters_to_context(context_.get(), stream->codecpar),
              "Couldn’t read the movie’s video");
    context_->pkt_timebase = stream->time_base;
    context_->thread_count = 0; // as many as the machine has
    ff::check(avcodec_open2(context_.get(), codec, nullptr), "Couldn’t decode the movie’s video");
}

void FrameDecoder::decode(const AVPacket* packet, const FrameSink& sink) {
    if (packet != nullptr && packet->buf != nullptr && !av_buffer_is_writable(packet->buf)) {
        // Bytes the decoder must not touch, or that lack the zeroed padding decoders
        // read past the end of a packet: give the decoder a padded copy.
        ff::check(av_packet_ref(padded_.get(), packet), "Not enough memory to decode the video");
        ff::check(av_packet_make_writable(padded_.get()), "Not enough memory to decode the video");
        decode(padded_.get(), sink);
        av_packet_unref(padded_.get());
        return;
    }
    const int sent = avcodec_send_packet(context_.get(), packet);
    if (sent < 0 && sent != AVERROR_EOF) {
        ff::check(sent, "Couldn’t decode the movie’s video");
    }
    while (true) {
        const int received = avcodec_receive_frame(context_.get(), frame_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, "Couldn’t decode the movie’s video");
        if (frame_->pts == AV_NOPTS_VALUE) {
            frame_->pts = frame_->best_effort_timestamp;
        }
        sink(frame_.get());
        av_frame_unref(frame_.get());
    }
}

void FrameDecoder::reset() {
    avcodec_flush_buffers(context_.get());
}

FrameEncoder::FrameEncoder(ff::CodecContext encoder, FrameTypes types)
    : encoder_(std::move(encoder)), types_(types), input_(ff::makeFrame()),
      packet_(ff::makePacket()) {}

const AVFrame* FrameEncoder::converted(const AVFrame* frame) {
    if (frame->width == encoder_->width && frame->height == encoder_->height &&
        frame->format == encoder_->pix_fmt) {
        return frame;
    }
    if (!scaled_) {
        scaled_ = record::makeVideoFrame(*encoder_);
    }
    scaler_.reset(sws_getCachedContext(scaler_.release(), frame->width, frame->height,
                                       static_cast<AVPixelFormat>(frame->format), encoder_->width,
                                       encoder_->height, encoder_->pix_fmt, SWS_BICUBIC, nullptr,
                                       nullptr, nullptr));
    if (!scaler_) {
        throw MediaError("The movie’s picture format can’t be converted.");
    }
    ff::check(av_frame_make_writable(scaled_.get()), "Not enough memory to encode the video");
    sws_scale(scaler_.get(), frame->data, frame->linesize, 0, frame->height, scaled_->data,
              scaled_->linesize);
    return scaled_.get();
}

void FrameEncoder::encode(const AVFrame* frame, std::int64_t outputTimestamp,
                          const PacketSink& sink) {
    const AVFrame* source = converted(frame);
    ff::check(av_frame_ref(input_.get(), source), "Not enough memory to encode the video");
    // Its own timestamps count frames.
    input_->pict_type = AV_PICTURE_TYPE_NONE;
    if (types_ == FrameTypes::keyThenPredicted) {
        input_->pict_type = nextIndex_ == 0 ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_P;
    }
    input_->pts = nextIndex_;
    outputTimestamps_[nextIndex_++] = outputTimestamp;
    const int sent = avcodec_send_frame(encoder_.get(), input_.get());
    av_frame_unref(input_.get());
    ff::check(sent, "Couldn’t encode the video");
    receive(sink);
}

void FrameEncoder::flush(const PacketSink& sink) {
    const int sent = avcodec_send_frame(encoder_.get(), nullptr);
    if (sent < 0 && sent != AVERROR_EOF) {
        ff::check(sent, "Couldn’t encode the video");
    }
    receive(sink);
}

void FrameEncoder::receive(const PacketSink& sink) {
    while (true) {
        const int received = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, "Couldn’t encode the video");
        const auto placed = outputTimestamps_.find(packet_->pts);
        if (placed == outputTimestamps_.end()) {
            throw MediaError("The video encoder returned a frame it was not given.");
        }
        packet_->pts = placed->second;
        packet_->dts = placed->second;
        packet_->duration = 0;
        outputTimestamps_.erase(placed);
        sink(packet_.get());
        av_packet_unref(packet_.get());
    }
}

} // namespace lumenvale::edit
