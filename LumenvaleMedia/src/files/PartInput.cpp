#include "files/PartInput.h"

namespace lumenvale::files {

PartInput::PartInput(std::filesystem::path path)
    : path_(std::move(path)), input_(ff::openInput(path_, ff::InputProbing::headerOnly)) {
    copied_.assign(input_->nb_streams, false);
    cutOff_.assign(input_->nb_streams, false);
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        AVStream* stream = input_->streams[index];
        if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
            continue;
        }
        const AVMediaType type = stream->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_VIDEO && video_ == nullptr) {
            video_ = stream;
        } else if (type == AVMEDIA_TYPE_AUDIO) {
            audio_.push_back(stream);
        } else {
            stream->discard = AVDISCARD_ALL;
            continue;
        }
        copied_[index] = true;
    }
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        if (!copied_[index]) {
            input_->streams[index]->discard = AVDISCARD_ALL;
        }
    }
}

double PartInput::listedSeconds() const {
    AVStream* stream = timing();
    if (stream == nullptr) {
        return 0;
    }
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
        return ff::seconds(stream->duration, stream->time_base);
    }
    // Containers that list samples but no stream duration: the span of the samples.
    const int entries = avformat_index_get_entries_count(stream);
    if (entries >= 2) {
        const AVIndexEntry* first = avformat_index_get_entry(stream, 0);
        const AVIndexEntry* last = avformat_index_get_entry(stream, entries - 1);
        const AVIndexEntry* beforeLast = avformat_index_get_entry(stream, entries - 2);
        return ff::seconds(2 * last->timestamp - beforeLast->timestamp - first->timestamp,
                           stream->time_base);
    }
    if (entries == 0 && input_->duration != AV_NOPTS_VALUE && input_->duration > 0) {
        return ff::seconds(input_->duration, AV_TIME_BASE_Q);
    }
    return 0;
}

std::int64_t PartInput::listedStart() const {
    AVStream* stream = timing();
    if (stream == nullptr) {
        return 0;
    }
    if (stream->start_time != AV_NOPTS_VALUE) {
        return stream->start_time;
    }
    if (avformat_index_get_entries_count(stream) > 0) {
        return avformat_index_get_entry(stream, 0)->timestamp;
    }
    return 0;
}

std::optional<std::int64_t> PartInput::listedSamples() const {
    if (input_->iformat == nullptr ||
        std::string(input_->iformat->name).find("mp4") == std::string::npos) {
        return std::nullopt;
    }
    std::int64_t samples = 0;
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        if (copied_[index]) {
            samples += avformat_index_get_entries_count(input_->streams[index]);
        }
    }
    return samples;
}

std::optional<std::string> PartInput::tag(const char* key) const {
    const AVDictionaryEntry* entry = av_dict_get(input_->metadata, key, nullptr, 0);
    if (entry == nullptr || entry->value == nullptr) {
        return std::nullopt;
    }
    return std::string(entry->value);
}

bool PartInput::next(AVPacket& packet) {
    for (;;) {
        av_packet_unref(&packet);
        const int read = av_read_frame(input_.get(), &packet);
        if (read == AVERROR_EOF || read == AVERROR_INVALIDDATA) {
            return false;
        }
        if (read < 0) {
            throw MediaError("The part file “" + path_.filename().string() +
                             "” couldn’t be read: " + ff::errorText(read) + ".");
        }
        const auto index = static_cast<std::size_t>(packet.stream_index);
        if (index >= copied_.size() || !copied_[index] || cutOff_[index]) {
            continue;
        }
        if ((packet.flags & AV_PKT_FLAG_CORRUPT) != 0 || packet.size <= 0) {
            // Cut short by the end of the file: nothing after it in this stream is whole.
            cutOff_[index] = true;
            continue;
        }
        return true;
    }
}

} // namespace lumenvale::files
