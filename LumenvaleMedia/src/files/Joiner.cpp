#include "files/Joiner.h"

#include "files/AudioPlacement.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <optional>
#include <string_view>

namespace lumenvale::files {
namespace {

struct OutputDeleter {
    void operator()(AVFormatContext* context) const {
        if (context != nullptr) {
            context->pb = nullptr; // owned by the MovieFile
            avformat_free_context(context);
        }
    }
};
using Output = std::unique_ptr<AVFormatContext, OutputDeleter>;

// Upper bound of the index's size per sample: sizes (4), times (8), composition
// offsets (8), sync samples (4), chunk table (12) and offsets (8), dependency flags (1).
constexpr std::int64_t moovBytesPerSample = 48;
constexpr std::int64_t moovBytesFixed = 64 * 1024;
constexpr std::int64_t moovBytesPerStream = 8 * 1024;

// The audio offset tag: samples at 48 kHz of the recording before the part, when the
// part's audio time counts from the part's own start.
constexpr const char* audioOffsetTag = "lumenvale_audio_offset";

std::int64_t dictionaryBytes(const AVDictionary* dictionary) {
    std::int64_t bytes = 0;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        bytes +=
            64 + static_cast<std::int64_t>(std::strlen(entry->key) + std::strlen(entry->value));
    }
    return bytes;
}

bool keepsFormatTag(std::string_view key) {
    // Tags of the part files themselves or written anew by the muxer.
    return !key.starts_with("lumenvale_") && key != "major_brand" && key != "minor_version" &&
           key != "compatible_brands" && key != "encoder";
}

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

// One output stream and the time base its packets are computed in before they are
// handed to the muxer (the first part's).
struct Track {
    AVStream* out = nullptr;
    AVRational workBase{1, 1};
};

class Join {
  public:
    Join(const std::vector<std::unique_ptr<PartInput>>& parts, MovieFile& file)
        : parts_(parts), file_(file) {}

    std::vector<double> run(MoovPlacement placement) {
        makeOutput(placement);
        std::vector<double> seconds;
        for (const auto& part : parts_) {
            seconds.push_back(copyPart(*part));
        }
        const int trailer = av_write_trailer(output_.get());
        if (trailer < 0 || file_.failed()) {
            failed(trailer);
            if (reservedBytes_ > 0) {
                throw ReservedSpaceTooSmall();
            }
            throw MediaError("The movie couldn’t be finished: " + ff::errorText(trailer) + ".");
        }
        return seconds;
    }

  private:
    void makeOutput(MoovPlacement placement) {
        AVFormatContext* raw = nullptr;
        ff::check(avformat_alloc_output_context2(&raw, nullptr, "mp4", nullptr),
                  "Couldn’t create the movie");
        output_.reset(raw);
        output_->pb = file_.io();
        output_->flags |= AVFMT_FLAG_CUSTOM_IO;

        const PartInput& first = *parts_.front();
        const AVDictionaryEntry* entry = nullptr;
        while ((entry = av_dict_get(first.format().metadata, "", entry, AV_DICT_IGNORE_SUFFIX))) {
            if (keepsFormatTag(entry->key)) {
                av_dict_set(&output_->metadata, entry->key, entry->value, 0);
            }
        }
        if (first.video() != nullptr) {
            video_ = addTrack(*first.video());
        }
        for (AVStream* stream : first.audio()) {
            audio_.push_back(addTrack(*stream));
        }
        if (!video_ && audio_.empty()) {
            throw MediaError(RecError::nothingRecorded);
        }

        AVDictionary* options = nullptr;
        if (placement == MoovPlacement::front) {
            reservedBytes_ = reservedMoovBytes();
            if (reservedBytes_ > 0) {
                av_dict_set_int(&options, "moov_size", reservedBytes_, 0);
            }
        }
        const int header = avformat_write_header(output_.get(), &options);
        av_dict_free(&options);
        if (header < 0) {
            failed(header);
            throw MediaError(
                "The recording couldn’t be saved as a movie: " + ff::errorText(header) + ".");
        }
    }

    Track addTrack(const AVStream& in) {
        AVStream* out = avformat_new_stream(output_.get(), nullptr);
        if (out == nullptr) {
            throw MediaError("Not enough memory to save the movie.");
        }
        ff::check(avcodec_parameters_copy(out->codecpar, in.codecpar), "Couldn’t create the movie");
        // Keep the sample entry's name (avc1/hvc1/...) when MPEG-4 knows it for this codec.
        const unsigned tag = in.codecpar->codec_tag;
        out->codecpar->codec_tag =
            tag != 0 && av_codec_get_id(output_->oformat->codec_tag, tag) == in.codecpar->codec_id
                ? tag
                : 0;
        if (out->codecpar->codec_id == AV_CODEC_ID_AAC && out->codecpar->frame_size <= 0) {
            out->codecpar->frame_size = 1024; // what MPEG-4's header does not repeat
        }
        out->time_base = in.time_base;
        out->avg_frame_rate = in.avg_frame_rate;
        out->sample_aspect_ratio = in.sample_aspect_ratio;
        out->disposition = in.disposition;
        av_dict_copy(&out->metadata, in.metadata, 0);
        for (int index = 0; index < in.nb_side_data; ++index) {
            const AVPacketSideData& side = in.side_data[index];
            std::uint8_t* copy = av_stream_new_side_data(out, side.type, side.size);
            if (copy != nullptr) {
                std::memcpy(copy, side.data, side.size);
            }
        }
        return Track{out, in.time_base};
    }

    int reservedMoovBytes() const {
        std::int64_t bytes = moovBytesFixed + dictionaryBytes(output_->metadata);
        for (const auto& part : parts_) {
            const std::optional<std::int64_t> samples = part->listedSamples();
            if (!samples) {
                return 0;
            }
            bytes += *samples * moovBytesPerSample;
        }
        for (unsigned index = 0; index < output_->nb_streams; ++index) {
            const AVStream* stream = output_->streams[index];
            bytes += moovBytesPerStream + stream->codecpar->extradata_size +
                     dictionaryBytes(stream->metadata);
        }
        return bytes < INT_MAX / 2 ? static_cast<int>(bytes) : 0;
    }

    // Throws the file's own sentence when the failure was writing to the disk.
    void failed(int /*code*/) const {
        if (file_.failed()) {
            throw MediaError(file_.failure());
        }
    }

    // Hands a packet to the muxer. Packets go in the parts' own interleaving (about a
    // second of each track at a time), so no reordering queue is needed. A packet whose
    // bytes were not read (listed by its part) is copied file to file.
    void write(AVPacket& packet, const Track& track, const PartInput& part) {
        packet.stream_index = track.out->index;
        av_packet_rescale_ts(&packet, track.workBase, track.out->time_base);
        const bool fromFile = packet.data == nullptr;
        if (fromFile) {
            packet.data = file_.payloadFromFile(part.fileDescriptor(), packet.pos, packet.size);
        }
        packet.pos = -1;
        const int written = av_write_frame(output_.get(), &packet);
        if (written < 0) {
            failed(written);
            throw MediaError("The recording couldn’t be joined: " + ff::errorText(written) + ".");
        }
        if (fromFile && !file_.payloadTaken()) {
            throw MediaError(
                "The recording couldn’t be joined: the movie writer changed a sample.");
        }
    }

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
                write(*packet, *video_, part);
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
        write(packet, track, part);
    }

    const std::vector<std::unique_ptr<PartInput>>& parts_;
    MovieFile& file_;
    Output output_;
    std::optional<Track> video_;
    std::vector<Track> audio_;
    std::vector<AudioPlacement> placements_;
    int reservedBytes_ = 0;
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
