#include "files/MovieOutput.h"

#include <climits>
#include <cstring>
#include <string_view>

namespace lumenvale::files {
namespace {

// Upper bound of the index's size per sample: sizes (4), times (8), composition
// offsets (8), sync samples (4), chunk table (12) and offsets (8), dependency flags (1).
constexpr std::int64_t moovBytesPerSample = 48;
constexpr std::int64_t moovBytesFixed = 64 * 1024;
constexpr std::int64_t moovBytesPerStream = 8 * 1024;

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

} // namespace

void MovieOutput::Deleter::operator()(AVFormatContext* context) const {
    if (context != nullptr) {
        context->pb = nullptr; // owned by the MovieFile
        avformat_free_context(context);
    }
}

MovieOutput::MovieOutput(const std::vector<std::unique_ptr<PartInput>>& parts, MovieFile& file,
                         MoovPlacement placement)
    : file_(file) {
    AVFormatContext* raw = nullptr;
    ff::check(avformat_alloc_output_context2(&raw, nullptr, "mp4", nullptr),
              "Couldn’t create the movie");
    output_.reset(raw);
    output_->pb = file_.io();
    output_->flags |= AVFMT_FLAG_CUSTOM_IO;

    const PartInput& first = *parts.front();
    isLumenvalePart_ = first.tag("lumenvale_recording").has_value();
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
        reservedBytes_ = reservedMoovBytes(parts);
        if (reservedBytes_ > 0) {
            av_dict_set_int(&options, "moov_size", reservedBytes_, 0);
        }
    }
    const int header = avformat_write_header(output_.get(), &options);
    av_dict_free(&options);
    if (header < 0) {
        throwIfFileFailed();
        throw MediaError("The recording couldn’t be saved as a movie: " + ff::errorText(header) +
                         ".");
    }
}

Track MovieOutput::addTrack(const AVStream& in) {
    AVStream* out = avformat_new_stream(output_.get(), nullptr);
    if (out == nullptr) {
        throw MediaError("Not enough memory to save the movie.");
    }
    ff::check(avcodec_parameters_copy(out->codecpar, in.codecpar), "Couldn’t create the movie");
    // Keep the sample entry's name (avc1/hvc1/...) when MPEG-4 knows it for this codec.
    const unsigned tag = in.codecpar->codec_tag;
    out->codecpar->codec_tag =
        tag != 0 && av_codec_get_id(output_->oformat->codec_tag, tag) == in.codecpar->codec_id ? tag
                                                                                               : 0;
    if (out->codecpar->codec_id == AV_CODEC_ID_AAC && out->codecpar->frame_size <= 0) {
        out->codecpar->frame_size = 1024; // what MPEG-4's header does not repeat
    }
    out->time_base = in.time_base;
    out->avg_frame_rate = in.avg_frame_rate;
    out->sample_aspect_ratio = in.sample_aspect_ratio;
    out->disposition = in.disposition;
    av_dict_copy(&out->metadata, in.metadata, 0);
    // A part's track name is its title and its handler name; the demuxer reports only
    // the handler name, and the title (the track's udta name) must be written again.
    const AVDictionaryEntry* handler = av_dict_get(in.metadata, "handler_name", nullptr, 0);
    if (isLumenvalePart_ && in.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && handler != nullptr &&
        av_dict_get(out->metadata, "title", nullptr, 0) == nullptr) {
        av_dict_set(&out->metadata, "title", handler->value, 0);
    }
    for (int index = 0; index < in.nb_side_data; ++index) {
        const AVPacketSideData& side = in.side_data[index];
        std::uint8_t* copy = av_stream_new_side_data(out, side.type, side.size);
        if (copy != nullptr) {
            std::memcpy(copy, side.data, side.size);
        }
    }
    return Track{out, in.time_base};
}

int MovieOutput::reservedMoovBytes(const std::vector<std::unique_ptr<PartInput>>& parts) const {
    std::int64_t bytes = moovBytesFixed + dictionaryBytes(output_->metadata);
    for (const auto& part : parts) {
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

void MovieOutput::throwIfFileFailed() const {
    if (file_.failed()) {
        throw MediaError(file_.failure());
    }
}

void MovieOutput::write(AVPacket& packet, const Track& track, const PartInput& part) {
    packet.stream_index = track.out->index;
    av_packet_rescale_ts(&packet, track.workBase, track.out->time_base);
    const bool fromFile = packet.data == nullptr;
    if (fromFile) {
        packet.data = file_.payloadFromFile(part.fileDescriptor(), packet.pos, packet.size);
    }
    packet.pos = -1;
    const int written = av_write_frame(output_.get(), &packet);
    if (written < 0) {
        throwIfFileFailed();
        throw MediaError("The recording couldn’t be joined: " + ff::errorText(written) + ".");
    }
    if (fromFile && !file_.payloadTaken()) {
        throw MediaError("The recording couldn’t be joined: the movie writer changed a sample.");
    }
}

void MovieOutput::finish() {
    const int trailer = av_write_trailer(output_.get());
    if (trailer < 0 || file_.failed()) {
        throwIfFileFailed();
        if (reservedBytes_ > 0) {
            throw ReservedSpaceTooSmall();
        }
        throw MediaError("The movie couldn’t be finished: " + ff::errorText(trailer) + ".");
    }
}

} // namespace lumenvale::files
