#include "edit/MovieWriter.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <cstring>

namespace lumenvale::edit {
namespace {

// Movie-level tags that describe the container being read, not the movie: the
// muxer writes its own.
bool isContainerTag(const char* key) {
    for (const char* own : {"major_brand", "minor_version", "compatible_brands", "encoder"}) {
        if (std::strcmp(key, own) == 0) {
            return true;
        }
    }
    return false;
}

// Progress is reported in steps of this fraction, so a caller that hops to the GUI
// thread for every report is not flooded.
constexpr double progressStep = 0.002;

} // namespace

MovieWriter::MovieWriter(const EditRenderer::Destination& destination, double outputSeconds,
                         const EditRenderer::Progress& progress, const std::atomic<bool>* cancel)
    : file_(destination, cancel), outputSeconds_(outputSeconds), progress_(progress),
      cancel_(cancel) {
    AVFormatContext* raw = nullptr;
    const int made = avformat_alloc_output_context2(&raw, nullptr, "mp4", nullptr);
    output_.reset(raw);
    ff::check(made, "Couldn’t create the movie");
    output_->pb = file_.context();
    output_->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Packets go straight to the file, never flushed one by one.
    output_->flush_packets = 0;
    // The index is moved in front of the samples when the file is finished, which
    // reads the file back.
    file_.serveReadsTo(output_.get());
}

MovieWriter::~MovieWriter() {
    if (output_) {
        output_->pb = nullptr; // file_ owns it
    }
}

void MovieWriter::check(int code, const char* doing) const {
    if (code < 0 && file_.failure()) {
        throw MediaError(*file_.failure());
    }
    ff::check(code, doing);
}

int MovieWriter::addCopiedStream(const AVStream* source, AVRational timeBase, SampleEntry entry) {
    AVStream* stream = avformat_new_stream(output_.get(), nullptr);
    if (stream == nullptr) {
        throw MediaError("Not enough memory to write the movie.");
    }
    ff::check(avcodec_parameters_copy(stream->codecpar, source->codecpar),
              "Couldn’t copy a track of the movie");
    // Keep the sample entry's name (avc1 / hvc1 / mp4a) when MPEG-4 knows it for this
    // codec; otherwise let the muxer choose.
    unsigned int knownCodec = 0;
    const bool tagFits = av_codec_get_tag2(output_->oformat->codec_tag, source->codecpar->codec_id,
                                           &knownCodec) != 0 &&
                         source->codecpar->codec_tag != 0 &&
                         (source->codecpar->codec_tag == knownCodec ||
                          source->codecpar->codec_tag == MKTAG('h', 'v', 'c', '1') ||
                          source->codecpar->codec_tag == MKTAG('h', 'e', 'v', '1'));
    stream->codecpar->codec_tag = tagFits ? source->codecpar->codec_tag : 0;
    if (entry == SampleEntry::parameterSetsInBand) {
        stream->codecpar->codec_tag = source->codecpar->codec_id == AV_CODEC_ID_HEVC
                                          ? MKTAG('h', 'e', 'v', '1')
                                          : MKTAG('a', 'v', 'c', '3');
    }
    if (stream->codecpar->codec_id == AV_CODEC_ID_AAC && stream->codecpar->frame_size <= 0) {
        stream->codecpar->frame_size = 1024; // what MPEG-4's header does not repeat
    }
    stream->time_base = timeBase;
    stream->avg_frame_rate = source->avg_frame_rate;
    stream->sample_aspect_ratio = source->sample_aspect_ratio;
    keepDescription(source, stream);
    timeBases_.push_back(timeBase);
    return stream->index;
}

void MovieWriter::keepDescription(const AVStream* source, AVStream* stream) {
    stream->disposition = source->disposition;
    av_dict_copy(&stream->metadata, source->metadata, 0);
    // Rotation and other stream-wide facts (the display matrix of a phone's movie).
    for (int index = 0; index < source->nb_side_data; ++index) {
        const AVPacketSideData& side = source->side_data[index];
        if (std::uint8_t* copy = av_stream_new_side_data(stream, side.type, side.size)) {
            std::memcpy(copy, side.data, side.size);
        }
    }
}

int MovieWriter::addEncodedStream(const AVStream* source, const AVCodecContext& encoder,
                                  AVRational timeBase) {
    AVStream* stream = avformat_new_stream(output_.get(), nullptr);
    if (stream == nullptr) {
        throw MediaError("Not enough memory to write the movie.");
    }
    ff::check(avcodec_parameters_from_context(stream->codecpar, &encoder),
              "Couldn’t set up the movie’s video track");
    stream->time_base = timeBase;
    stream->avg_frame_rate = encoder.framerate;
    keepDescription(source, stream);
    av_dict_set(&stream->metadata, "encoder", nullptr, 0);
    timeBases_.push_back(timeBase);
    return stream->index;
}

void MovieWriter::copyMovieTags(const AVFormatContext* source) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(source->metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (!isContainerTag(entry->key)) {
            av_dict_set(&output_->metadata, entry->key, entry->value, 0);
        }
    }
}

void MovieWriter::start() {
    // "Fast start": the index (moov) before the samples (mdat), so that a movie shared
    // as a link plays before it has fully arrived. When finishing, the muxer moves the
    // samples up by the index's size: it reads the hidden file back once and writes it
    // again in place (cancellable, as every write is); the name is given only after.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    const int started = avformat_write_header(output_.get(), &options);
    av_dict_free(&options);
    check(started, "Couldn’t start writing the movie");
}

void MovieWriter::write(int stream, AVPacket* packet) {
    checkCancel();
    const auto index = static_cast<std::size_t>(stream);
    const AVRational muxerTimeBase = output_->streams[stream]->time_base;
    av_packet_rescale_ts(packet, timeBases_[index], muxerTimeBase);
    packet->stream_index = stream;
    packet->pos = -1;
    const double endSeconds = ff::seconds(packet->pts + packet->duration, muxerTimeBase);
    check(av_interleaved_write_frame(output_.get(), packet), "Couldn’t write the movie");
    reportProgress(endSeconds);
}

void MovieWriter::checkCancel() const {
    if (cancel_ != nullptr && cancel_->load(std::memory_order_relaxed)) {
        throw MediaError(exportCancelled);
    }
}

void MovieWriter::finish() {
    checkCancel();
    check(av_interleaved_write_frame(output_.get(), nullptr), "Couldn’t write the movie");
    check(av_write_trailer(output_.get()), "Couldn’t finish writing the movie");
    file_.finish();
}

std::filesystem::path MovieWriter::publish() {
    checkCancel();
    std::filesystem::path written = file_.publish();
    if (progress_) {
        progress_(1.0);
    }
    return written;
}

void MovieWriter::reportProgress(double outputSeconds) {
    if (!progress_ || outputSeconds_ <= 0) {
        return;
    }
    // Kept just under 1 until the file is complete.
    const double fraction = std::clamp(outputSeconds / outputSeconds_, 0.0, 0.999);
    if (fraction >= reportedFraction_ + progressStep) {
        reportedFraction_ = fraction;
        progress_(fraction);
    }
}

} // namespace lumenvale::edit
