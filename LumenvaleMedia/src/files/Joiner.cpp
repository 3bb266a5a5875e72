#include "files/Joiner.h"

#include "files/AudioPlacement.h"
#include "files/MovieOutput.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace lumenvale::files {
namespace {

// The audio offset tag: samples at 48 kHz of the recording before the part, when the
// part's audio time counts from the part's own start.
constexpr const char* audioOffsetTag = "lumenvale_audio_offset";

std::optional<std::int64_t> integerTag(const PartInput& part, const char* key) {
    const std::optional<std::string> text = part.tag(key);
    if (!text) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (error != std::errc() || end != text->data() + text->size()) {
        return std::nullopt;
    }
    return value;
}

std::string formatMismatch(const PartInput& part) {
    return "The part file “" + part.path().filename().string() +
           "” was recorded in another format than the parts before it, so they can’t be "
           "joined without encoding again.";
}

void checkSameFormat(const AVCodecParameters& first, const AVCodecParameters& other,
                     const PartInput& part) {
    bool same = first.codec_id == other.codec_id;
    if (first.codec_type == AVMEDIA_TYPE_VIDEO) {
        same = same && first.width == other.width && first.height == other.height;
    } else {
        same = same && first.sample_rate == other.sample_rate &&
               first.ch_layout.nb_channels == other.ch_layout.nb_channels;
    }
    if (!same) {
        throw MediaError(formatMismatch(part));
    }
}

class Join {
  public:
    Join(const std::vector<std::unique_ptr<PartInput>>& parts, MovieFile& file)
        : parts_(parts), file_(file) {}

    std::vector<double> run(MoovPlacement placement) {
        // A recording ends where both its picture and its sound do: its last part, when
        // a crash cut it off, holds more of one than of the other, and the parts before
        // it may hold picture whose sound never left the encoder (parts a frame long,
        // from quick pauses). (Only in the part writer's own clock do a part's sound and
        // picture both count from its start.)
        std::size_t kept = parts_.size();
        if (parts_.back()->tag(audioOffsetTag)) {
            while (kept > 1 && parts_[kept - 1]->pictureWithoutSound()) {
                --kept;
            }
            parts_[kept - 1]->endTracksTogether();
        }
        output_.emplace(parts_, file_, placement);
        if (output_->video()) {
            video_ = *output_->video();
        }
        audio_ = output_->audio();
        std::vector<double> seconds;
        for (std::size_t index = 0; index < parts_.size(); ++index) {
            seconds.push_back(index < kept ? copyPart(*parts_[index]) : 0.0);
        }
        output_->finish();
        return seconds;
    }

  private:
    // Per part and audio track: the first packets, held until the part's placement
    // is decided.
    struct AudioState {
        std::vector<ff::Packet> held;
        bool decided = false;
        std::int64_t offsetTicks = 0; // from the audio offset tag, in the track's ticks
        std::int64_t videoOrigin = 0; // the part's video start, in the track's ticks
    };

    double copyPart(PartInput& part) {
        if (video_ && part.video() != nullptr) {
            checkSameFormat(*video_->out->codecpar, *part.video()->codecpar, part);
        }
        const std::size_t tracks = std::min(audio_.size(), part.audio().size());
        for (std::size_t index = 0; index < tracks; ++index) {
            checkSameFormat(*audio_[index].out->codecpar, *part.audio()[index]->codecpar, part);
        }

        const AVRational videoBase = timelineBase();
        const std::int64_t origin = part.listedStart(); // in the timing stream's base
        const AVRational originBase = part.timing()->time_base;
        if (!priming_) {
            // The movie starts where the first part's video starts; audio before it is
            // the encoder's priming and gets an edit list.
            priming_ = origin;
            primingBase_ = originBase;
        }

        const std::optional<std::int64_t> audioOffset = integerTag(part, audioOffsetTag);
        std::vector<AudioState> states(tracks);
        for (std::size_t index = 0; index < tracks; ++index) {
            const AVRational base = audio_[index].workBase;
            states[index].offsetTicks =
                audioOffset ? av_rescale_q(*audioOffset, {1, 48000}, base) : 0;
            states[index].videoOrigin = av_rescale_q(origin, originBase, base);
        }

        const std::int64_t partStart = videoEnd_;
        std::int64_t partEnd = partStart;
        std::int64_t correction = 0; // keeps the video's decode times rising at the join
        std::int64_t lastDelta = 0;
        ff::Packet packet = ff::makePacket();
        while (part.next(*packet)) {
            AVStream* in = part.format().streams[packet->stream_index];
            if (in == part.video()) {
                if (!video_) {
                    continue;
                }
                av_packet_rescale_ts(packet.get(), in->time_base, videoBase);
                const std::int64_t start = av_rescale_q(origin, originBase, videoBase);
                if (packet->pts == AV_NOPTS_VALUE) {
                    packet->pts = packet->dts;
                }
                if (packet->dts == AV_NOPTS_VALUE) {
                    packet->dts = packet->pts;
                }
                packet->pts += partStart - start + correction;
                packet->dts += partStart - start + correction;
                if (lastVideoDts_ && packet->dts <= *lastVideoDts_) {
                    const std::int64_t step = *lastVideoDts_ + 1 - packet->dts;
                    correction += step;
                    packet->pts += step;
                    packet->dts += step;
                }
                if (lastVideoDts_ && packet->dts > *lastVideoDts_) {
                    lastDelta = packet->dts - *lastVideoDts_;
                }
                if (packet->duration <= 0) {
                    packet->duration = lastDelta > 0 ? lastDelta : frameTicks(*in, videoBase);
                }
                lastVideoDts_ = packet->dts;
                partEnd = std::max(partEnd, packet->pts + packet->duration);
                output_->write(*packet, *video_, part);
                continue;
            }
            const auto found = std::find(part.audio().begin(), part.audio().end(), in);
            const auto index = static_cast<std::size_t>(found - part.audio().begin());
            if (index >= tracks) {
                continue;
            }
            av_packet_rescale_ts(packet.get(), in->time_base, audio_[index].workBase);
            if (packet->dts == AV_NOPTS_VALUE) {
                packet->dts = packet->pts;
            }
            AudioState& state = states[index];
            if (!state.decided) {
                state.held.push_back(std::move(packet));
                packet = ff::makePacket();
                if (state.held.size() == 2) {
                    releaseAudio(index, state, partStart, part);
                }
                continue;
            }
            placeAudio(index, state, *packet, part);
        }
        for (std::size_t index = 0; index < tracks; ++index) {
            if (!states[index].decided && !states[index].held.empty()) {
                releaseAudio(index, states[index], partStart, part);
            }
        }
        if (!video_) {
            // A movie without video: parts follow each other's sound.
            partEnd = std::max(partEnd, audioPlacement(0).end().value_or(partEnd));
        }
        videoEnd_ = partEnd;
        return ff::seconds(partEnd - partStart, videoBase);
    }

    // The time base of the movie's timeline: the video's, or the first audio track's in a
    // movie without video.
    AVRational timelineBase() const { return video_ ? video_->workBase : audio_.front().workBase; }

    static std::int64_t frameTicks(const AVStream& stream, AVRational base) {
        const AVRational rate =
            stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
        return rate.num > 0 ? std::max<std::int64_t>(1, av_rescale_q(1, av_inv_q(rate), base)) : 1;
    }

    // The length of one audio packet of a track (1024 samples for AAC), in its ticks.
    static std::int64_t packetTicks(const Track& track) {
        const AVCodecParameters& codec = *track.out->codecpar;
        const int frameSize = codec.frame_size > 0 ? codec.frame_size : 1024;
        const int rate = codec.sample_rate > 0 ? codec.sample_rate : 48000;
        return std::max<std::int64_t>(1, av_rescale_q(frameSize, {1, rate}, track.workBase));
    }

    AudioPlacement& audioPlacement(std::size_t index) {
        while (placements_.size() <= index) {
            placements_.emplace_back(packetTicks(audio_[placements_.size()]));
        }
        return placements_[index];
    }

    std::int64_t claim(const AudioState& state, const AVPacket& packet, const Track& track) const {
        return packet.dts + state.offsetTicks -
               av_rescale_q(*priming_, primingBase_, track.workBase);
    }

    void releaseAudio(std::size_t index, AudioState& state, std::int64_t partStartVideo,
                      const PartInput& part) {
        const Track& track = audio_[index];
        const std::int64_t partStart = av_rescale_q(partStartVideo, timelineBase(), track.workBase);
        const std::int64_t first = claim(state, *state.held[0], track);
        const std::optional<std::int64_t> second =
            state.held.size() > 1 ? std::optional(claim(state, *state.held[1], track))
                                  : std::nullopt;
        const std::int64_t videoAligned = state.held[0]->dts - state.videoOrigin + partStart;
        audioPlacement(index).beginPart(first, second, videoAligned, partStart);
        state.decided = true;
        for (ff::Packet& held : state.held) {
            placeAudio(index, state, *held, part);
        }
        state.held.clear();
    }

    void placeAudio(std::size_t index, const AudioState& state, AVPacket& packet,
                    const PartInput& part) {
        const Track& track = audio_[index];
        AudioPlacement& placement = audioPlacement(index);
        if (packet.duration <= 0) {
            packet.duration = packetTicks(track);
        }
        const std::int64_t time = placement.place(claim(state, packet, track), packet.duration);
        packet.pts = time + (packet.pts != AV_NOPTS_VALUE ? packet.pts - packet.dts : 0);
        packet.dts = time;
        output_->write(packet, track, part);
    }

    const std::vector<std::unique_ptr<PartInput>>& parts_;
    MovieFile& file_;
    std::optional<MovieOutput> output_;
    std::optional<Track> video_;
    std::vector<Track> audio_;
    std::vector<AudioPlacement> placements_;
    std::optional<std::int64_t> priming_;
    AVRational primingBase_{1, 1};
    std::int64_t videoEnd_ = 0; // in the video's work time base
    std::optional<std::int64_t> lastVideoDts_;
};

} // namespace

MoovPlacement moovPlacementFor(const std::vector<std::unique_ptr<PartInput>>& parts) {
    for (const auto& part : parts) {
        if (!part->listedSamples()) {
            return MoovPlacement::end;
        }
    }
    return MoovPlacement::front;
}

std::vector<double> writeJoined(const std::vector<std::unique_ptr<PartInput>>& parts,
                                MovieFile& file, MoovPlacement placement) {
    return Join(parts, file).run(placement);
}

} // namespace lumenvale::files
