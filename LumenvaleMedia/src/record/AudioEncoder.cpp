#include "record/AudioEncoder.h"

#include "record/AudioTimeline.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>

namespace lumenvale::record {

AudioEncoder::AudioEncoder(int channels) : channels_(channels), packet_(ff::makePacket()) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        throw MediaError("This system can’t encode AAC sound.");
    }
    context_.reset(avcodec_alloc_context3(codec));
    if (!context_) {
        throw MediaError("Not enough memory to encode the sound.");
    }
    context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context_->sample_rate = audioRate;
    av_channel_layout_default(&context_->ch_layout, channels);
    context_->bit_rate = channels == 1 ? 96'000 : 160'000;
    context_->time_base = AVRational{1, audioRate};
    context_->profile = FF_PROFILE_AAC_LOW;
    context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    ff::check(avcodec_open2(context_.get(), codec, nullptr), "Couldn’t start the sound encoder");

    frame_ = ff::makeFrame();
    frame_->format = AV_SAMPLE_FMT_FLTP;
    frame_->sample_rate = audioRate;
    frame_->nb_samples = context_->frame_size;
    ff::check(av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout),
              "Couldn’t start the sound encoder");
    ff::check(av_frame_get_buffer(frame_.get(), 0), "Not enough memory to encode the sound");
}

void AudioEncoder::push(const float* interleaved, std::int64_t frames, const PacketSink& sink) {
    const int frameSize = context_->frame_size;
    std::int64_t done = 0;
    while (done < frames) {
        if (filled_ == 0) {
            ff::check(av_frame_make_writable(frame_.get()),
                      "Not enough memory to encode the sound");
        }
        const int run =
            static_cast<int>(std::min<std::int64_t>(frames - done, frameSize - filled_));
        for (int channel = 0; channel < channels_; ++channel) {
            auto* plane = reinterpret_cast<float*>(frame_->data[channel]) + filled_;
            const float* source = interleaved + done * channels_ + channel;
            for (int i = 0; i < run; ++i) {
                plane[i] = source[static_cast<std::ptrdiff_t>(i) * channels_];
            }
        }
        filled_ += run;
        done += run;
        taken_ += run;
        if (filled_ == frameSize) {
            frame_->nb_samples = frameSize;
            frame_->pts = nextPts_;
            nextPts_ += frameSize;
            filled_ = 0;
            encode(frame_.get(), sink);
        }
    }
}

void AudioEncoder::flush(const PacketSink& sink) {
    if (filled_ > 0) {
        frame_->nb_samples = filled_;
        frame_->pts = nextPts_;
        nextPts_ += filled_;
        filled_ = 0;
        encode(frame_.get(), sink);
    }
    encode(nullptr, sink);
}

void AudioEncoder::encode(AVFrame* frame, const PacketSink& sink) {
    ff::check(avcodec_send_frame(context_.get(), frame), "Couldn’t encode the sound");
    for (;;) {
        const int received = avcodec_receive_packet(context_.get(), packet_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, "Couldn’t encode the sound");
        sink(*packet_);
        av_packet_unref(packet_.get());
    }
}

} // namespace lumenvale::record
