#include "edit/VideoCut.h"

#include "edit/SourceBytes.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace lumenvale::edit {
namespace {

std::int64_t timestampOf(const AVPacket* packet) {
    return packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
}

std::int64_t decodingOf(const AVPacket* packet) {
    return packet->dts != AV_NOPTS_VALUE ? packet->dts : timestampOf(packet);
}

bool isKeyframe(const AVPacket* packet) {
    return (packet->flags & AV_PKT_FLAG_KEY) != 0;
}

std::span<const std::uint8_t> extradataOf(const AVCodecParameters& parameters) {
    return {parameters.extradata, static_cast<std::size_t>(std::max(0, parameters.extradata_size))};
}

ff::Packet packetOf(const Bytes& sample) {
    ff::Packet packet = ff::makePacket();
    ff::check(av_new_packet(packet.get(), static_cast<int>(sample.size())),
              "Not enough memory to write the movie");
    std::memcpy(packet->data, sample.data(), sample.size());
    return packet;
}

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

} // namespace

VideoCut::VideoCut(const AVStream* source, CutEncoders& encoders, VideoOutput& output,
                   const SourceBytes* bytes)
    : source_(source), encoders_(encoders), output_(output), bytes_(bytes),
      codec_(source->codecpar->codec_id),
      lengthSize_(nalLengthSize(codec_, extradataOf(*source->codecpar))),
      reorders_(source->codecpar->video_delay > 0),
      sourceSets_(parameterSets(codec_, extradataOf(*source->codecpar))) {
    const AVRational rate =
        source->r_frame_rate.num > 0 ? source->r_frame_rate : source->avg_frame_rate;
    if (reorders_ && rate.num > 0 && rate.den > 0) {
        sourceDelay_ =
            av_rescale_q(source->codecpar->video_delay, av_inv_q(rate), source->time_base);
    }
}

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

std::int64_t VideoCut::outputDecoding(std::int64_t sourceDecoding) const {
    const AVRational out = output_.timeBase();
    return av_rescale_q(place_.outputStart, tickTimeBase, out) +
           av_rescale_q(sourceDecoding, source_->time_base, out) -
           av_rescale_q(place_.sourceStart, tickTimeBase, out);
}

void VideoCut::begin(const std::optional<Place>& place) {
    run_.clear();
    tail_.clear();
    pendingKeyframe_.reset();
    missedStart_ = false;
    decodable_ = false;
    pastEnd_ = false;
    lastDecoding_ = AV_NOPTS_VALUE; // the source was sought
    if (!place) {
        phase_ = Phase::done;
        return;
    }
    place_ = *place;
    joined_ = true; // the frames before are not this piece's source predecessors
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
    if (reorders_) {
        if (packet->dts == AV_NOPTS_VALUE) {
            // Matroska leaves the first packets after a seek without decoding times. A
            // time no later than the real one serves: the cut only waits for more.
            packet->dts = isKeyframe(packet) || lastDecoding_ == AV_NOPTS_VALUE
                              ? timestamp - sourceDelay_
                              : lastDecoding_ + 1;
            packet->dts = std::min(packet->dts, timestamp);
        }
        lastDecoding_ = packet->dts;
        if (isKeyframe(packet)) {
            // How long a keyframe is decoded before it is shown is the delay of the
            // stream's decoding times (other frames may wait longer, as references).
            decodingDelay_ =
                std::max(decodingDelay_, av_rescale_q(timestamp - packet->dts, source_->time_base,
                                                      output_.timeBase()));
        }
    }
    const std::int64_t decoding = decodingOf(packet);
    if (phase_ == Phase::findingStart) {
        // Every frame shown by the start has come once one decoded after it has.
        if (av_compare_ts(decoding, source_->time_base, place_.sourceStart, tickTimeBase) <= 0) {
            buffer(packet);
            return;
        }
        startPiece();
    }
    advance(packet);
}

void VideoCut::advance(AVPacket* packet) {
    const std::int64_t timestamp = timestampOf(packet);
    // Once a frame decoded later than the end comes, no frame shown before it can.
    const bool decodedPastEnd = !before(decodingOf(packet), place_.sourceEnd);
    if (phase_ == Phase::done) {
        return;
    }
    if (phase_ == Phase::encodingHead) {
        if (decodedPastEnd) {
            finishEncoding();
            phase_ = Phase::done;
            return;
        }
        if (!isKeyframe(packet)) {
            decode(packet);
            return;
        }
        if (!reorders_) {
            finishEncoding();
            phase_ = Phase::copying;
        } else {
            // Pictures decoded after this keyframe but shown before it (an open GOP)
            // refer to frames before it: they join the head.
            encodeUntil_ = timestamp;
            pendingKeyframe_ = ff::makePacket();
            ff::check(av_packet_ref(pendingKeyframe_.get(), packet),
                      "Not enough memory to copy the movie");
            decode(packet);
            phase_ = Phase::leading;
            return;
        }
    }
    if (phase_ == Phase::leading) {
        if (!decodedPastEnd && !isKeyframe(packet) && timestamp < encodeUntil_) {
            decode(packet);
            return;
        }
        finishEncoding();
        copyPendingKeyframe();
        phase_ = Phase::copying;
    }
    // A keyframe after one shown past the end begins a group no kept frame needs.
    if (decodedPastEnd || (pastEnd_ && isKeyframe(packet))) {
        encodeTail();
        phase_ = Phase::done;
        return;
    }
    takeCopying(packet);
}

void VideoCut::takeCopying(AVPacket* packet) {
    const std::int64_t timestamp = timestampOf(packet);
    if (isKeyframe(packet)) {
        run_.clear();
    }
    if (!before(timestamp, place_.sourceEnd)) {
        pastEnd_ = true; // shown after the end, yet perhaps needed by frames before it
        keep(packet);
        return;
    }
    if (pastEnd_) {
        tail_.insert(timestamp);
        keep(packet);
        return;
    }
    if (timestamp < startTimestamp_) {
        return; // a leading picture of the start keyframe, shown before the start
    }
    keep(packet);
    copy(packet);
}

void VideoCut::keep(const AVPacket* packet) {
    if (!reorders_) {
        return;
    }
    ff::Packet kept = ff::makePacket();
    ff::check(av_packet_ref(kept.get(), packet), "Not enough memory to copy the movie");
    run_.push_back(std::move(kept));
}

void VideoCut::buffer(AVPacket* packet) {
    // A keyframe decoded by the start but shown after it (B-frames) may have frames
    // of the run before it still to show: the run goes on through it.
    const bool shownByStart = av_compare_ts(timestampOf(packet), source_->time_base,
                                            place_.sourceStart, tickTimeBase) <= 0;
    if (isKeyframe(packet) && (shownByStart || run_.empty())) {
        run_.clear();
    } else if (run_.empty()) {
        missedStart_ = true; // nothing before it to decode it from
        return;
    }
    missedStart_ = false;
    ff::Packet kept = ff::makePacket();
    av_packet_move_ref(kept.get(), packet);
    run_.push_back(std::move(kept));
}

void VideoCut::startPiece() {
    phase_ = Phase::copying;
    if (run_.empty()) {
        if (missedStart_) {
            throw MediaError(
                "The movie’s picture can’t be cut there: no keyframe comes before it.");
        }
        startTimestamp_ = std::numeric_limits<std::int64_t>::min();
        return; // the piece starts before the track's first frame
    }
    // The start frame is the last shown by the start; when none is, the first shown.
    std::optional<std::int64_t> start;
    std::int64_t first = timestampOf(run_.front().get());
    for (const auto& packet : run_) {
        const std::int64_t shown = timestampOf(packet.get());
        first = std::min(first, shown);
        if (av_compare_ts(shown, source_->time_base, place_.sourceStart, tickTimeBase) <= 0) {
            start = std::max(start.value_or(shown), shown);
        }
    }
    startTimestamp_ = start.value_or(first);
    std::vector<ff::Packet> run = std::move(run_);
    run_.clear();
    auto next = run.begin();
    if (startTimestamp_ != timestampOf(run.front().get())) {
        // The run's keyframe is decoded for the frames after it, not ended at.
        encodeUntil_ = never;
        startEncoding();
        phase_ = Phase::encodingHead;
        decode(next->get());
        ++next;
    }
    for (; next != run.end(); ++next) {
        advance(next->get());
    }
}

void VideoCut::startEncoding() {
    if (!decoder_) {
        decoder_ = std::make_unique<FrameDecoder>(source_);
    }
    encoder_ = std::make_unique<FrameEncoder>(encoders_.make(), FrameTypes::keyThenPredicted);
    decodable_ = true;
}

void VideoCut::decode(AVPacket* packet) {
    if (bytes_ != nullptr) {
        bytes_->load(*packet);
    }
    decoder_->decode(packet, [this](AVFrame* frame) { encodeFrame(frame); });
}

void VideoCut::encodeFrame(AVFrame* frame) {
    const std::int64_t shown = frame->pts;
    if (shown == AV_NOPTS_VALUE || !before(shown, place_.sourceEnd)) {
        return;
    }
    const bool wanted =
        encodingTail_ ? tail_.count(shown) != 0 : shown >= startTimestamp_ && shown < encodeUntil_;
    if (wanted) {
        encoder_->encode(frame, outputTimestamp(shown),
                         [this](AVPacket* encoded) { emitEncoded(encoded); });
    }
}

void VideoCut::emitEncoded(const AVPacket* encoded) {
    // Encoders write start-code framed units; MPEG-4 samples carry lengths. The
    // parameter sets live in the sample description, or, in band, before a keyframe.
    const bool keyframe = (encoded->flags & AV_PKT_FLAG_KEY) != 0;
    const AVCodecContext& context = encoder_->context();
    const std::span<const std::uint8_t> extradata(
        context.extradata, static_cast<std::size_t>(std::max(0, context.extradata_size)));
    Bytes sample = keyframe && encoders_.place() == ParameterSetPlace::inBand
                       ? lengthPrefixed(parameterSets(codec_, extradata), lengthSize_)
                       : Bytes{};
    const Bytes units = annexBToLengthPrefixed(
        codec_, {encoded->data, static_cast<std::size_t>(encoded->size)}, lengthSize_);
    sample.insert(sample.end(), units.begin(), units.end());
    ff::Packet packet = packetOf(sample);
    packet->flags = encoded->flags & AV_PKT_FLAG_KEY;
    // Encoded frames are decoded in the order shown; they keep the source's delay so
    // the copied frames around them keep their decoding times.
    output_.emit(packet.get(), encoded->pts, encoded->pts - decodingDelay_);
    joined_ = true;
}

void VideoCut::finishEncoding() {
    decoder_->decode(nullptr, [this](AVFrame* frame) { encodeFrame(frame); });
    decoder_->reset();
    encoder_->flush([this](AVPacket* encoded) { emitEncoded(encoded); });
    encoder_.reset();
}

void VideoCut::copyPendingKeyframe() {
    if (pendingKeyframe_ && before(timestampOf(pendingKeyframe_.get()), place_.sourceEnd)) {
        takeCopying(pendingKeyframe_.get());
    }
    pendingKeyframe_.reset();
}

void VideoCut::encodeTail() {
    if (tail_.empty()) {
        return;
    }
    startEncoding();
    encodingTail_ = true;
    for (auto& packet : run_) {
        decode(packet.get());
    }
    finishEncoding();
    encodingTail_ = false;
    tail_.clear();
    run_.clear();
}

void VideoCut::copy(AVPacket* packet) {
    // A piece's copied packets begin with a keyframe (or follow encoded ones).
    if (!decodable_ && !isKeyframe(packet)) {
        return;
    }
    decodable_ = true;
    // In band, every keyframe carries the source's parameter sets: a player that
    // seeks to it may have frames with other sets behind it.
    if (isKeyframe(packet) && (joined_ || encoders_.place() == ParameterSetPlace::inBand)) {
        startSequence(packet, joined_);
    }
    joined_ = false;
    const std::int64_t shown = outputTimestamp(timestampOf(packet));
    output_.emit(packet, shown, reorders_ ? outputDecoding(decodingOf(packet)) : shown);
}

void VideoCut::startSequence(AVPacket* packet, bool joined) const {
    if (bytes_ != nullptr) {
        bytes_->load(*packet);
    }
    if (encoders_.place() == ParameterSetPlace::inBand) {
        Bytes sample = lengthPrefixed(sourceSets_, lengthSize_);
        sample.insert(sample.end(), packet->data, packet->data + packet->size);
        ff::Packet withSets = packetOf(sample);
        ff::check(av_packet_copy_props(withSets.get(), packet),
                  "Not enough memory to copy the movie");
        av_packet_unref(packet);
        av_packet_move_ref(packet, withSets.get());
    }
    ff::check(av_packet_make_writable(packet), "Not enough memory to copy the movie");
    // A keyframe that continues its own run keeps its type (an HEVC clean random
    // access picture's leading pictures follow it).
    const auto begun =
        joined ? beginSequence(codec_, {packet->data, static_cast<std::size_t>(packet->size)},
                               lengthSize_)
               : SequenceStart::begins;
    if (begun == SequenceStart::cannot) {
        throw NeedsWholeEncode("This movie’s keyframes can’t begin a cut piece, so its picture is "
                               "encoded again.");
    }
}

void VideoCut::end() {
    if (phase_ == Phase::findingStart && !run_.empty()) {
        startPiece();
    }
    if (phase_ == Phase::encodingHead || phase_ == Phase::leading) {
        finishEncoding();
        copyPendingKeyframe();
        phase_ = Phase::copying;
    }
    if (phase_ == Phase::copying) {
        encodeTail();
    }
    phase_ = Phase::done;
}

} // namespace lumenvale::edit
