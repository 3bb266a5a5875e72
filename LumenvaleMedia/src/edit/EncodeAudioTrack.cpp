#include "edit/EncodeAudioTrack.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {
namespace {

constexpr std::int64_t silenceBlock = 4096;

std::int64_t samplesOf(double seconds) {
    return std::llround(seconds * static_cast<double>(workingSampleRate));
}

} // namespace

AudioTrackEncode::AudioTrackEncode(const AVStream* source, const std::string& movieName,
                                   const EditRenderer::TrackPlan& plan, double speed,
                                   SampleSink sink)
    : streamIndex_(plan.streamIndex), channels_(channelsFor(source)), gain_(plan.gain),
      sink_(std::move(sink)), decoder_(source, movieName), tempo_(speed, channels_) {}

int AudioTrackEncode::channelsFor(const AVStream* source) {
    return std::clamp(source->codecpar->ch_layout.nb_channels, 1, 2);
}

AudioTrackEncode::~AudioTrackEncode() {
    av_channel_layout_uninit(&convertedLayout_);
}

void AudioTrackEncode::beginClip(const EditRenderer::Segment* segment) {
    decoder_.reset();
    converter_.reset();
    segment_ = segment;
    if (segment_ != nullptr) {
        segmentFirst_ = samplesOf(segment_->outputStart);
        segmentEnd_ = segmentFirst_ + samplesOf(segment_->sourceEnd - segment_->sourceStart);
    }
}

bool AudioTrackEncode::wantsPackets() const {
    return segment_ != nullptr && placed_ < segmentEnd_;
}

void AudioTrackEncode::take(const AVPacket& packet) {
    decoder_.decode(&packet, [this](AVFrame* frame) { convert(frame); });
}

void AudioTrackEncode::endClip(ClipEnd end) {
    if (end == ClipEnd::endOfFile) {
        decoder_.drain([this](AVFrame* frame) { convert(frame); });
        if (converter_) {
            const int pending = swr_get_out_samples(converter_.get(), 0);
            if (pending > 0) {
                converted_.resize(static_cast<std::size_t>(pending * channels_));
                auto* out = reinterpret_cast<std::uint8_t*>(converted_.data());
                const int flushed = swr_convert(converter_.get(), &out, pending, nullptr, 0);
                if (flushed > 0) {
                    place(converted_.data(), flushed, nextSourceSeconds_);
                }
            }
        }
    }
    if (segment_ != nullptr) {
        padTo(segmentEnd_);
    }
    segment_ = nullptr;
}

void AudioTrackEncode::finish() {
    tempo_.finish([this](const float* samples, std::int64_t frames) { deliver(samples, frames); });
}

void AudioTrackEncode::convert(const AVFrame* frame) {
    if (segment_ == nullptr || frame->nb_samples <= 0) {
        return;
    }
    const bool sameInput = converter_ && convertedFormat_ == frame->format &&
                           convertedRate_ == frame->sample_rate &&
                           av_channel_layout_compare(&convertedLayout_, &frame->ch_layout) == 0;
    if (!sameInput) {
        av_channel_layout_uninit(&convertedLayout_);
        ff::check(av_channel_layout_copy(&convertedLayout_, &frame->ch_layout),
                  "Couldn’t convert the sound");
        AVChannelLayout outLayout{};
        av_channel_layout_default(&outLayout, channels_);
        SwrContext* raw = nullptr;
        const int made = swr_alloc_set_opts2(
            &raw, &outLayout, AV_SAMPLE_FMT_FLT, workingSampleRate, &convertedLayout_,
            static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
        av_channel_layout_uninit(&outLayout);
        converter_.reset(raw);
        ff::check(made, "Couldn’t convert the sound");
        ff::check(swr_init(converter_.get()), "Couldn’t convert the sound");
        convertedFormat_ = frame->format;
        convertedRate_ = frame->sample_rate;
    }
    // The converter's delay (nonzero only when the rate changes) puts its first output
    // sample slightly before the frame's own start.
    const double delaySeconds =
        static_cast<double>(swr_get_delay(converter_.get(), workingSampleRate)) / workingSampleRate;
    const double startSeconds = ff::seconds(frame->pts, decoder_.timeBase()) - delaySeconds;
    const int capacity = swr_get_out_samples(converter_.get(), frame->nb_samples);
    converted_.resize(static_cast<std::size_t>(std::max(capacity, 0) * channels_));
    auto* out = reinterpret_cast<std::uint8_t*>(converted_.data());
    const int made =
        swr_convert(converter_.get(), &out, capacity,
                    const_cast<const std::uint8_t**>(frame->extended_data), frame->nb_samples);
    ff::check(made, "Couldn’t convert the sound");
    nextSourceSeconds_ = startSeconds + static_cast<double>(made) / workingSampleRate;
    place(converted_.data(), made, startSeconds);
}

void AudioTrackEncode::place(const float* interleaved, std::int64_t frames, double sourceSeconds) {
    if (segment_ == nullptr || frames <= 0) {
        return;
    }
    const std::int64_t first = segmentFirst_ + samplesOf(sourceSeconds - segment_->sourceStart);
    const std::int64_t begin = std::max({first, placed_, segmentFirst_});
    const std::int64_t end = std::min(first + frames, segmentEnd_);
    if (end <= begin) {
        return;
    }
    padTo(begin);
    emit(interleaved + (begin - first) * channels_, end - begin);
}

void AudioTrackEncode::padTo(std::int64_t position) {
    if (placed_ >= position) {
        return;
    }
    const std::vector<float> silence(static_cast<std::size_t>(silenceBlock * channels_), 0.0f);
    while (placed_ < position) {
        emit(silence.data(), std::min(silenceBlock, position - placed_));
    }
}

void AudioTrackEncode::emit(const float* interleaved, std::int64_t frames) {
    placed_ += frames;
    tempo_.push(interleaved, frames,
                [this](const float* samples, std::int64_t count) { deliver(samples, count); });
}

void AudioTrackEncode::deliver(const float* interleaved, std::int64_t frames) {
    const auto count = static_cast<std::size_t>(frames * channels_);
    gained_.resize(count);
    const auto gain = static_cast<float>(gain_);
    for (std::size_t i = 0; i < count; ++i) {
        gained_[i] = std::clamp(interleaved[i] * gain, -1.0f, 1.0f);
    }
    sink_(gained_.data(), frames);
}

} // namespace lumenvale::edit
