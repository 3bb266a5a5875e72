#include "edit/AudioCut.h"

namespace lumenvale::edit {

AudioCut::AudioCut(const AVStream* source, MovieWriter& writer, int outputStream)
    : source_(source), writer_(writer), outputStream_(outputStream), previous_(ff::makePacket()) {}

std::int64_t AudioCut::inStream(std::int64_t ticks) const {
    return av_rescale_q(ticks, tickTimeBase, source_->time_base);
}

std::int64_t AudioCut::durationOf(const AVPacket* packet) const {
    if (packet != nullptr && packet->duration > 0) {
        return packet->duration;
    }
    const int samples = source_->codecpar->frame_size > 0 ? source_->codecpar->frame_size : 1024;
    const int rate = source_->codecpar->sample_rate > 0 ? source_->codecpar->sample_rate : 48000;
    return av_rescale_q(samples, AVRational{1, rate}, source_->time_base);
}

void AudioCut::begin(const std::optional<Place>& place) {
    av_packet_unref(previous_.get());
    hasPrevious_ = false;
    if (!place) {
        phase_ = Phase::done;
        return;
    }
    const std::int64_t outputStart = inStream(place->outputStart);
    // A track that has nothing for a while (it starts later than the others) leaves
    // that stretch empty; otherwise the sound runs on without a gap.
    const std::int64_t halfFrame = durationOf(nullptr) / 2;
    if (position_ < outputStart - halfFrame) {
        position_ = outputStart;
    }
    // Start on the packet whose start is nearest to the source instant that the
    // output position shows, which absorbs the rounding of the earlier cuts.
    target_ = inStream(place->sourceStart) + (position_ - outputStart);
    outputEnd_ = inStream(place->outputEnd());
    phase_ = Phase::seekingStart;
}

void AudioCut::take(AVPacket* packet) {
    if (phase_ == Phase::done) {
        return;
    }
    const std::int64_t duration = durationOf(packet);
    const std::int64_t start = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (phase_ == Phase::seekingStart) {
        if (start == AV_NOPTS_VALUE || 2 * start + duration < 2 * target_) {
            av_packet_unref(previous_.get());
            av_packet_move_ref(previous_.get(), packet);
            hasPrevious_ = start != AV_NOPTS_VALUE;
            return;
        }
        phase_ = Phase::copying;
        if (!wroteAny_ && hasPrevious_ && previous_->pts + durationOf(previous_.get()) == start) {
            const std::int64_t primingDuration = durationOf(previous_.get());
            emit(previous_.get(), position_ - primingDuration);
        }
    }
    // Keep the packet while it ends nearer to the piece's end than leaving it out would.
    if (2 * position_ + duration > 2 * outputEnd_) {
        phase_ = Phase::done;
        return;
    }
    const std::int64_t placed = position_;
    position_ += duration;
    packet->duration = duration;
    emit(packet, placed);
}

void AudioCut::emit(AVPacket* packet, std::int64_t outputTimestamp) {
    packet->pts = outputTimestamp;
    packet->dts = outputTimestamp;
    packet->duration = durationOf(packet);
    // The source's own skip marks were for its timeline; the output's edit list
    // says what to skip now.
    av_packet_free_side_data(packet);
    wroteAny_ = true;
    writer_.write(outputStream_, packet);
}

} // namespace lumenvale::edit
