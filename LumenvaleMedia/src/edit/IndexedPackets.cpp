// Packets taken from an MPEG-4 movie's sample index, their bytes left in the file (a
// packet carries their stand-in): a cut-only export then never reads the movie through
// the process, except the few frames after a cut that it decodes.

#include "edit/PacketSource.h"

#include <algorithm>
#include <cstring>

namespace lumenvale::edit {
namespace {

struct Sample {
    std::int64_t position = 0;
    std::int64_t timestamp = 0;
    std::int64_t duration = 0;
    int size = 0;
    int flags = 0; // AV_PKT_FLAG_*
};

struct IndexedStream {
    int index = 0;
    AVRational timeBase{1, 1};
    bool isVideo = false;
    std::vector<Sample> samples;
    std::size_t cursor = 0;
};

// Packets the demuxer is asked for to check that the index says the same.
constexpr int packetsCompared = 48;

std::optional<IndexedStream> indexOf(AVStream* stream) {
    IndexedStream indexed;
    indexed.index = stream->index;
    indexed.timeBase = stream->time_base;
    indexed.isVideo = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    const int count = avformat_index_get_entries_count(stream);
    if (count <= 0 || stream->nb_frames != count) {
        return std::nullopt; // fragments, or an edit list that dropped samples
    }
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
        if (entry == nullptr || entry->size <= 0 ||
            (!indexed.samples.empty() && entry->timestamp <= indexed.samples.back().timestamp)) {
            return std::nullopt;
        }
        Sample sample;
        sample.position = entry->pos;
        sample.timestamp = entry->timestamp;
        sample.size = entry->size;
        sample.flags = ((entry->flags & AVINDEX_KEYFRAME) != 0 ? AV_PKT_FLAG_KEY : 0) |
                       ((entry->flags & AVINDEX_DISCARD_FRAME) != 0 ? AV_PKT_FLAG_DISCARD : 0);
        if (!indexed.samples.empty()) {
            indexed.samples.back().duration = sample.timestamp - indexed.samples.back().timestamp;
        }
        indexed.samples.push_back(sample);
    }
    // The last sample lasts until the end of the track.
    Sample& last = indexed.samples.back();
    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    last.duration = stream->duration != AV_NOPTS_VALUE && start + stream->duration > last.timestamp
                        ? start + stream->duration - last.timestamp
                        : (indexed.samples.size() > 1 ? indexed.samples.end()[-2].duration : 0);
    return indexed;
}

class IndexedPackets final : public PacketSource {
  public:
    IndexedPackets(const SourceBytes& bytes, std::vector<IndexedStream> streams)
        : bytes_(bytes), streams_(std::move(streams)) {}

    void seek(std::int64_t ticks) override {
        for (IndexedStream& stream : streams_) {
            const std::int64_t target = av_rescale_q(ticks, tickTimeBase, stream.timeBase);
            const auto after = std::upper_bound(
                stream.samples.begin(), stream.samples.end(), target,
                [](std::int64_t time, const Sample& sample) { return time < sample.timestamp; });
            std::size_t at = after == stream.samples.begin()
                                 ? 0
                                 : static_cast<std::size_t>(after - stream.samples.begin()) - 1;
            while (stream.isVideo && at > 0 && (stream.samples[at].flags & AV_PKT_FLAG_KEY) == 0) {
                --at;
            }
            stream.cursor = at;
        }
    }

    bool next(AVPacket* packet) override {
        IndexedStream* earliest = nullptr;
        for (IndexedStream& stream : streams_) {
            if (stream.cursor < stream.samples.size() &&
                (earliest == nullptr || stream.samples[stream.cursor].position <
                                            earliest->samples[earliest->cursor].position)) {
                earliest = &stream;
            }
        }
        if (earliest == nullptr) {
            return false;
        }
        const Sample& sample = earliest->samples[earliest->cursor++];
        av_packet_unref(packet);
        packet->buf = bytes_.reference(sample.position, sample.size);
        if (packet->buf == nullptr) {
            throw MediaError("The movie is damaged or incomplete.");
        }
        packet->data = packet->buf->data;
        packet->size = sample.size;
        packet->pts = sample.timestamp;
        packet->dts = sample.timestamp;
        packet->duration = sample.duration;
        packet->flags = sample.flags;
        packet->stream_index = earliest->index;
        packet->pos = sample.position;
        return true;
    }

  private:
    const SourceBytes& bytes_;
    std::vector<IndexedStream> streams_;
};

// The first packets the demuxer gives are samples of the index, with the same time,
// place and size.
bool demuxerAgrees(SourceMovie& movie, const std::vector<IndexedStream>& streams) {
    if (avformat_seek_file(movie.input.get(), -1, INT64_MIN, INT64_MIN, INT64_MIN, 0) < 0) {
        return false;
    }
    ff::Packet packet = ff::makePacket();
    for (int read = 0; read < packetsCompared; ++read) {
        if (av_read_frame(movie.input.get(), packet.get()) < 0) {
            break;
        }
        for (const IndexedStream& stream : streams) {
            if (stream.index != packet->stream_index) {
                continue;
            }
            const auto sample = std::lower_bound(
                stream.samples.begin(), stream.samples.end(), packet->dts,
                [](const Sample& entry, std::int64_t time) { return entry.timestamp < time; });
            if (sample == stream.samples.end() || sample->timestamp != packet->dts ||
                packet->pts != packet->dts || sample->position != packet->pos ||
                sample->size != packet->size) {
                return false;
            }
        }
        av_packet_unref(packet.get());
    }
    return true;
}

} // namespace

std::unique_ptr<PacketSource> indexedPackets(SourceMovie& movie, const SourceBytes& bytes,
                                             const std::vector<int>& streams) {
    if (std::strstr(movie.input->iformat->name, "mp4") == nullptr) {
        return nullptr;
    }
    std::vector<IndexedStream> indexed;
    for (const int index : streams) {
        AVStream* stream = movie.stream(index);
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            stream->codecpar->video_delay != 0) {
            return nullptr; // presentation order differs from the index's decoding order
        }
        auto samples = indexOf(stream);
        if (!samples) {
            return nullptr;
        }
        indexed.push_back(std::move(*samples));
    }
    if (!demuxerAgrees(movie, indexed)) {
        return nullptr;
    }
    return std::make_unique<IndexedPackets>(bytes, std::move(indexed));
}

} // namespace lumenvale::edit
