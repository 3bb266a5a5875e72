#include "files/PartInput.h"

#include "files/FileWindow.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::files {
namespace {

// How many packets are read to confirm that the container's sample list describes the
// packets exactly (positions, sizes, times) before the list is trusted.
constexpr int packetsChecked = 64;

bool listsSamples(const AVFormatContext& input) {
    return input.iformat != nullptr &&
           std::string_view(input.iformat->name).find("mp4") != std::string_view::npos;
}

// The usual time between samples: the median step, for the last sample's duration.
std::int64_t usualStep(std::vector<std::int64_t> steps, std::int64_t fallback) {
    if (steps.empty()) {
        return fallback;
    }
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle > 0 ? *middle : fallback;
}

// One sample's length when a stream gives nothing better: an audio packet (1024 samples
// for AAC), a frame at the stream's frame rate, else a tick.
std::int64_t oneSampleTicks(const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    if (codec.codec_type == AVMEDIA_TYPE_AUDIO && codec.sample_rate > 0) {
        return av_rescale_q(codec.frame_size > 0 ? codec.frame_size : 1024, {1, codec.sample_rate},
                            stream.time_base);
    }
    const AVRational rate =
        stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    if (codec.codec_type == AVMEDIA_TYPE_VIDEO && rate.num > 0 && rate.den > 0) {
        return std::max<std::int64_t>(1, av_rescale_q(1, av_inv_q(rate), stream.time_base));
    }
    return 1;
}

} // namespace

bool holdsNoSamples(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return false;
    }
    const std::int64_t fileBytes = status.st_size;
    std::int64_t position = 0;
    while (position < fileBytes) {
        std::uint8_t header[16] = {};
        const ssize_t read = ::pread(fd, header, sizeof header, position);
        if (read < 8) {
            return position > 0 && read >= 0; // a box header cut short after the ftyp
        }
        const std::string_view type(reinterpret_cast<const char*>(header + 4), 4);
        const bool headerBox =
            type == "ftyp" || type == "moov" || type == "free" || type == "skip" || type == "wide";
        if ((position == 0 && type != "ftyp") || !headerBox) {
            return false;
        }
        std::uint64_t size = bigEndian(header, 4);
        if (size == 1) {
            size = read >= 16 ? bigEndian(header + 8, 8) : 0;
        } else if (size == 0) {
            size = static_cast<std::uint64_t>(fileBytes - position);
        }
        if (size < 8) {
            return false;
        }
        position += static_cast<std::int64_t>(
            std::min(size, static_cast<std::uint64_t>(fileBytes - position)));
    }
    return true;
}

PartInput::PartInput(std::filesystem::path path) : path_(std::move(path)) {
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        // Let the regular opener say what is wrong with it.
        input_ = ff::openInput(path_, ff::InputProbing::headerOnly);
    }
    open();
}

PartInput::~PartInput() {
    input_.reset();
    window_.reset();
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

void PartInput::open() {
    struct stat status {};
    const std::optional<std::int64_t> end =
        ::fstat(fd_, &status) == 0 ? wholeBoxesEnd(fd_, status.st_size) : std::nullopt;
    input_.reset();
    window_.reset();
    if (!end) {
        input_ = ff::openInput(path_, ff::InputProbing::headerOnly);
    } else {
        window_ = std::make_unique<FileWindow>(fd_, *end);
        AVFormatContext* raw = avformat_alloc_context();
        if (raw == nullptr) {
            throw MediaError("Not enough memory to read the recording.");
        }
        raw->pb = window_->io();
        raw->flags |= AVFMT_FLAG_CUSTOM_IO;
        AVDictionary* options = nullptr;
        av_dict_set(&options, "format_whitelist", "mov,mp4,m4a,3gp,3g2,mj2", 0);
        const int opened = avformat_open_input(&raw, nullptr, nullptr, &options);
        av_dict_free(&options);
        if (opened < 0) {
            throw MediaError("The file “" + path_.filename().string() +
                             "” is damaged or incomplete.");
        }
        input_.reset(raw);
    }
    video_ = nullptr;
    audio_.clear();
    copied_.assign(input_->nb_streams, false);
    cutOff_.assign(input_->nb_streams, false);
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        AVStream* stream = input_->streams[index];
        const AVMediaType type = stream->codecpar->codec_type;
        if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
            stream->discard = AVDISCARD_ALL;
        } else if (type == AVMEDIA_TYPE_VIDEO && video_ == nullptr) {
            video_ = stream;
            copied_[index] = true;
        } else if (type == AVMEDIA_TYPE_AUDIO) {
            audio_.push_back(stream);
            copied_[index] = true;
        } else {
            stream->discard = AVDISCARD_ALL;
        }
    }
}

AVStream* PartInput::timing() const {
    if (video_ != nullptr) {
        return video_;
    }
    return audio_.empty() ? nullptr : audio_.front();
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
    if (!listsSamples(*input_)) {
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

std::vector<PartInput::Sample> PartInput::listedSamplesInFileOrder() const {
    struct stat status {};
    if (::fstat(fd_, &status) != 0) {
        return {};
    }
    std::vector<Sample> samples;
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        if (!copied_[index]) {
            continue;
        }
        AVStream* stream = input_->streams[index];
        const int count = avformat_index_get_entries_count(stream);
        std::vector<std::int64_t> steps;
        const std::size_t first = samples.size();
        for (int entry = 0; entry < count; ++entry) {
            const AVIndexEntry& listed = *avformat_index_get_entry(stream, entry);
            if (listed.pos < 0 || listed.size <= 0 || listed.pos + listed.size > status.st_size) {
                break; // cut off by the end of the file, and everything after it
            }
            if (entry + 1 < count) {
                steps.push_back(avformat_index_get_entry(stream, entry + 1)->timestamp -
                                listed.timestamp);
            }
            samples.push_back(Sample{static_cast<int>(index), listed.timestamp,
                                     entry + 1 < count ? steps.back() : 0, listed.pos, listed.size,
                                     (listed.flags & AVINDEX_KEYFRAME) != 0});
        }
        // A sample lasts until the next; the last one as long as usual, except a frame:
        // it lasts until the video's listed end. (A part of one frame has no step to go
        // by, and in a short part with a dropped frame the median step is wrong. For
        // video the listed duration is the samples' span in fragmented and flat files
        // alike; for audio in a flat file it is the edit list's, without the priming.)
        const std::int64_t usual = usualStep(steps, oneSampleTicks(*stream));
        for (std::size_t sample = first; sample < samples.size(); ++sample) {
            if (samples[sample].duration <= 0) {
                samples[sample].duration = usual;
            }
        }
        const bool lastIsKept =
            count > 0 && samples.size() - first == static_cast<std::size_t>(count);
        if (lastIsKept && stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
            const std::int64_t end = samples[first].dts + stream->duration;
            if (end > samples.back().dts) {
                samples.back().duration = end - samples.back().dts;
            }
        }
    }
    std::stable_sort(samples.begin(), samples.end(),
                     [](const Sample& a, const Sample& b) { return a.position < b.position; });
    return samples;
}

bool PartInput::listAgreesWithPackets(const std::vector<Sample>& samples) {
    std::vector<std::size_t> seen(input_->nb_streams, 0);
    std::vector<std::vector<const Sample*>> byStream(input_->nb_streams);
    for (const Sample& sample : samples) {
        byStream[static_cast<std::size_t>(sample.stream)].push_back(&sample);
    }
    ff::Packet packet = ff::makePacket();
    for (int checked = 0; checked < packetsChecked && readPacket(*packet); ++checked) {
        const auto stream = static_cast<std::size_t>(packet->stream_index);
        const std::vector<const Sample*>& listed = byStream[stream];
        if (seen[stream] >= listed.size()) {
            return false;
        }
        const Sample& sample = *listed[seen[stream]++];
        // Reordered frames (pts != dts) are not described by the list: read them.
        if (sample.position != packet->pos || sample.size != packet->size ||
            sample.dts != packet->dts || packet->pts != packet->dts) {
            return false;
        }
    }
    return true;
}

void PartInput::chooseReading() {
    readingChosen_ = true;
    if (fd_ < 0 || !listsSamples(*input_)) {
        return;
    }
    std::vector<Sample> samples = listedSamplesInFileOrder();
    if (!samples.empty() && listAgreesWithPackets(samples)) {
        samples_ = std::move(samples);
        fromList_ = true;
    } else {
        open(); // from the first packet again
    }
}

bool PartInput::pictureWithoutSound() {
    if (!readingChosen_) {
        chooseReading();
    }
    if (!fromList_ || video_ == nullptr || audio_.empty()) {
        return false;
    }
    const auto isSound = [this](const Sample& sample) {
        return sample.stream != video_->index;
    };
    const auto isFrame = [this](const Sample& sample) {
        return sample.stream == video_->index;
    };
    return std::none_of(samples_.begin(), samples_.end(), isSound) &&
           std::any_of(samples_.begin(), samples_.end(), isFrame);
}

void PartInput::endTracksTogether() {
    if (!readingChosen_) {
        chooseReading();
    }
    if (!fromList_ || video_ == nullptr || audio_.empty()) {
        return;
    }
    struct Time {
        std::int64_t ticks;
        AVRational base;
        bool operator<=(const Time& other) const {
            return av_compare_ts(ticks, base, other.ticks, other.base) <= 0;
        }
    };
    const auto isFrame = [this](const Sample& sample) {
        return sample.stream == video_->index;
    };
    const auto start = [this](const Sample& sample) {
        return Time{sample.dts, input_->streams[sample.stream]->time_base};
    };
    const auto end = [this](const Sample& sample) {
        return Time{sample.dts + sample.duration, input_->streams[sample.stream]->time_base};
    };
    // The sound ends where the first audio track to end does.
    std::vector<std::optional<Time>> trackEnds(input_->nb_streams);
    for (const Sample& sample : samples_) {
        std::optional<Time>& trackEnd = trackEnds[static_cast<std::size_t>(sample.stream)];
        if (!trackEnd || *trackEnd <= end(sample)) {
            trackEnd = end(sample);
        }
    }
    std::optional<Time> soundEnd;
    for (const AVStream* stream : audio_) {
        const std::optional<Time>& trackEnd = trackEnds[static_cast<std::size_t>(stream->index)];
        if (!trackEnd) {
            return; // a track without sound: nothing to end with
        }
        if (!soundEnd || *trackEnd <= *soundEnd) {
            soundEnd = trackEnd;
        }
    }
    // The frames shown before the sound ends (the first frame in any case); the last
    // of them is cut short at the sound's end. (Frames last as long as the screen
    // stayed unchanged, so a last frame may reach far past the sound.)
    const auto firstFrame = std::find_if(samples_.begin(), samples_.end(), isFrame);
    if (firstFrame == samples_.end()) {
        return;
    }
    const std::int64_t firstFrameTime = firstFrame->dts;
    const auto frameKept = [&](const Sample& frame) {
        return frame.dts == firstFrameTime || !(*soundEnd <= start(frame));
    };
    Sample* lastFrame = &*firstFrame;
    for (Sample& sample : samples_) {
        if (isFrame(sample) && frameKept(sample) && sample.dts > lastFrame->dts) {
            lastFrame = &sample;
        }
    }
    if (*soundEnd <= end(*lastFrame)) {
        const AVRational base = input_->streams[lastFrame->stream]->time_base;
        const std::int64_t soundEndTicks = av_rescale_q(soundEnd->ticks, soundEnd->base, base);
        lastFrame->duration = std::max<std::int64_t>(1, soundEndTicks - lastFrame->dts);
    }
    const Time pictureEnd = end(*lastFrame);
    std::erase_if(samples_, [&](const Sample& sample) {
        return isFrame(sample) ? !frameKept(sample) : pictureEnd <= start(sample);
    });
}

bool PartInput::next(AVPacket& packet) {
    if (!readingChosen_) {
        chooseReading();
    }
    if (!fromList_) {
        return readPacket(packet);
    }
    av_packet_unref(&packet);
    if (nextSample_ >= samples_.size()) {
        return false;
    }
    const Sample& sample = samples_[nextSample_++];
    packet.stream_index = sample.stream;
    packet.pts = sample.dts;
    packet.dts = sample.dts;
    packet.duration = sample.duration;
    packet.pos = sample.position;
    packet.size = sample.size;
    packet.data = nullptr;
    packet.flags = sample.key ? AV_PKT_FLAG_KEY : 0;
    return true;
}

bool PartInput::readPacket(AVPacket& packet) {
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
