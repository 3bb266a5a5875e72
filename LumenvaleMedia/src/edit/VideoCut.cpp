#include "edit/VideoCut.h"

#include "edit/ParameterSets.h"
#include "edit/SourceBytes.h"

#include <algorithm>
#include <cstring>

namespace lumenvale::edit {
namespace {

std::int64_t timestampOf(const AVPacket* packet) {
    return packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
}

bool isKeyframe(const AVPacket* packet) {
    return (packet->flags & AV_PKT_FLAG_KEY) != 0;
}

} // namespace

VideoCut::VideoCut(const AVStream* source, CutEncoders& encoders, VideoOutput& output,
                   const SourceBytes* bytes)
    : source_(source), encoders_(encoders), output_(output), bytes_(bytes),
      codec_(source->codecpar->codec_id),
      lengthSize_(nalLengthSize(
          codec_, {source->codecpar->extradata,
                   static_cast<std::size_t>(std::max(0, source->codecpar->extradata_size))})) {}

bool VideoCut::before(std::int64_t sourceTimestamp, std::int64_t ticks) const {
    return av_compare_ts(sourceTimestamp, source_->time_base, ticks, tickTimeBase) < 0;
}

std::int64_t VideoCut::outputTimestamp(std::int64_t sourceTimestamp) const {
    const AVRational out = output_.timeBase();
    const std::int64_t sinceStart = av_rescale_q(sourceTimestamp, source_->time_base, out) -
                                    av_rescale_q(place_.sourceStart, tickTimeBase, out);
    return av_rescale_q(place_.outputStart, tickTimeBase, out) +
           std::max<std::int64_t>(0, sinceStart);
}

void VideoCut::begin(const std::optional<Place>& place) {
    keyframeRun_.clear();
    missedStart_ = false;
    decodable_ = false;
    if (!place) {
        phase_ = Phase::done;
        return;
    }
    place_ = *place;
    endTimestamp_ = av_rescale_q(place_.outputEnd(), tickTimeBase, output_.timeBase());
    phase_ = Phase::findingStart;
}

void VideoCut::take(AVPacket* packet) {
    const std::int64_t timestamp = timestampOf(packet);
    if (phase_ == Phase::done || timestamp == AV_NOPTS_VALUE) {
        return;
    }
    if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        throw MediaError("A frame of the movie’s picture is damaged.");
    }
    if (phase_ == Phase::findingStart) {
        // The frame shown at the start instant is the last one that begins by then.
        if (av_compare_ts(timestamp, source_->time_base, place_.sourceStart, tickTimeBase) <= 0) {
            buffer(packet);
            return;
        }
        startPiece();
    }
    const bool pastEnd = !before(timestamp, place_.sourceEnd);
    if (phase_ == Phase::encodingHead && (pastEnd || isKeyframe(packet))) {
        finishHead();
        phase_ = Phase::copying;
    }
    if (pastEnd) {
        phase_ = Phase::done;
        return;
    }
    if (phase_ == Phase::encodingHead) {
        decode(packet);
    } else {
        copy(packet);
    }
}

void VideoCut::buffer(AVPacket* packet) {
    if (isKeyframe(packet)) {
        keyframeRun_.clear();
    } else if (keyframeRun_.empty()) {
        missedStart_ = true; // nothing before it to decode it from
        return;
    }
    missedStart_ = false;
    ff::Packet kept = ff::makePacket();
    av_packet_move_ref(kept.get(), packet);
    keyframeRun_.push_back(std::move(kept));
}

void VideoCut::startPiece() {
    phase_ = Phase::copying;
    if (keyframeRun_.empty()) {
        if (missedStart_) {
            throw MediaError(
                "The movie’s picture can’t be cut there: no keyframe comes before it.");
        }
        return; // the piece starts before the track's first frame
    }
    AVPacket* first = keyframeRun_.back().get();
    startTimestamp_ = timestampOf(first);
    if (isKeyframe(first)) {
        copy(first);
    } else {
        if (!decoder_) {
            decoder_ = std::make_unique<FrameDecoder>(source_);
        }
        encoder_ = std::make_unique<FrameEncoder>(encoders_.make());
        phase_ = Phase::encodingHead;
        decodable_ = true;
        for (auto& packet : keyframeRun_) {
            decode(packet.get());
        }
    }
    keyframeRun_.clear();
}

void VideoCut::decode(AVPacket* packet) {
    if (bytes_ != nullptr) {
        bytes_->load(*packet);
    }
    decoder_->decode(packet, [this](AVFrame* frame) { encodeFrame(frame); });
}

void VideoCut::encodeFrame(AVFrame* frame) {
    if (frame->pts == AV_NOPTS_VALUE || frame->pts < startTimestamp_ ||
        !before(frame->pts, place_.sourceEnd)) {
        return;
    }
    encoder_->encode(frame, outputTimestamp(frame->pts),
                     [this](AVPacket* encoded) { emitEncoded(encoded); });
}

void VideoCut::emitEncoded(const AVPacket* encoded) {
    // Encoders write start-code framed units; MPEG-4 samples carry lengths, and the
    // parameter sets live in the source's sample description.
    const Bytes sample = annexBToLengthPrefixed(
        codec_, {encoded->data, static_cast<std::size_t>(encoded->size)}, lengthSize_);
    ff::Packet packet = ff::makePacket();
    ff::check(av_new_packet(packet.get(), static_cast<int>(sample.size())),
              "Not enough memory to write the movie");
    std::memcpy(packet->data, sample.data(), sample.size());
    packet->flags = encoded->flags & AV_PKT_FLAG_KEY;
    output_.emit(packet.get(), encoded->pts);
}

void VideoCut::finishHead() {
    decoder_->decode(nullptr, [this](AVFrame* frame) { encodeFrame(frame); });
    decoder_->reset();
    encoder_->flush([this](AVPacket* encoded) { emitEncoded(encoded); });
    encoder_.reset();
}

void VideoCut::copy(AVPacket* packet) {
    // A piece's copied packets begin with a keyframe (or follow encoded ones).
    if (!decodable_ && !isKeyframe(packet)) {
        return;
    }
    decodable_ = true;
    output_.emit(packet, outputTimestamp(timestampOf(packet)));
}

void VideoCut::end() {
    if (phase_ == Phase::findingStart && !keyframeRun_.empty()) {
        startPiece();
    }
    if (phase_ == Phase::encodingHead) {
        finishHead();
    }
    phase_ = Phase::done;
}

void VideoCut::finish() {
    output_.finish(endTimestamp_);
}

} // namespace lumenvale::edit
