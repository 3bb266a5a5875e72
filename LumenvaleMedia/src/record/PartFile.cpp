#include "record/PartFile.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::record {

namespace {

constexpr int ioBufferBytes = 256 * 1024;

std::string startedText(const LocalDateTime& when) {
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", when.year, when.month,
                  when.day, when.hour, when.minute, when.second);
    return text;
}

} // namespace

std::string partFileName(const Uuid& id) {
    return "Lumenvale-" + id.text() + ".mp4";
}

void PartFile::FormatDeleter::operator()(AVFormatContext* context) const {
    context->pb = nullptr; // the part's own I/O context, freed separately
    avformat_free_context(context);
}

void PartFile::IoDeleter::operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
}

PartFile::PartFile(std::filesystem::path path, const AVCodecContext& video,
                   const std::vector<AudioTrackSpec>& audio, const PartTags& tags)
    : path_(std::move(path)), audioTracks_(static_cast<int>(audio.size())),
      audioSeen_(audio.size(), false) {
    lock_ = PartLock::create(path_);
    fd_ = lock_.descriptor();
    try {
        auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
        if (buffer == nullptr) {
            throw MediaError("Not enough memory to write the recording.");
        }
        io_.reset(avio_alloc_context(buffer, ioBufferBytes, 1, this, nullptr, &PartFile::writeBytes,
                                     &PartFile::seekBytes));
        if (!io_) {
            av_free(buffer);
            throw MediaError("Not enough memory to write the recording.");
        }
        AVFormatContext* raw = nullptr;
        ff::check(avformat_alloc_output_context2(&raw, nullptr, "mp4", nullptr),
                  "Couldn’t create the recording file");
        format_.reset(raw);
        format_->pb = io_.get();
        format_->flags |= AVFMT_FLAG_CUSTOM_IO;

        av_dict_set(&format_->metadata, "lumenvale_recording", tags.recording.text().c_str(), 0);
        av_dict_set(&format_->metadata, "lumenvale_part", std::to_string(tags.partNumber).c_str(),
                    0);
        av_dict_set(&format_->metadata, "lumenvale_started", startedText(tags.startedAt).c_str(),
                    0);
        av_dict_set(&format_->metadata, "lumenvale_audio_offset",
                    std::to_string(tags.audioOffset).c_str(), 0);

        AVStream* videoStream = avformat_new_stream(format_.get(), nullptr);
        if (videoStream == nullptr) {
            throw MediaError("Not enough memory to write the recording.");
        }
        ff::check(avcodec_parameters_from_context(videoStream->codecpar, &video),
                  "Couldn’t create the recording file");
        videoStream->time_base = video.time_base;
        videoStream->avg_frame_rate = video.framerate;
        videoStream->disposition = AV_DISPOSITION_DEFAULT;
        for (const AudioTrackSpec& track : audio) {
            AVStream* stream = avformat_new_stream(format_.get(), nullptr);
            if (stream == nullptr) {
                throw MediaError("Not enough memory to write the recording.");
            }
            ff::check(avcodec_parameters_from_context(stream->codecpar, track.encoder),
                      "Couldn’t create the recording file");
            stream->time_base = track.encoder->time_base;
            stream->disposition = track.isDefault ? AV_DISPOSITION_DEFAULT : 0;
            av_dict_set(&stream->metadata, "title", track.title.c_str(), 0);
            av_dict_set(&stream->metadata, "handler_name", track.title.c_str(), 0);
        }

        AVDictionary* options = nullptr;
        // Fragments are cut by hand (flushFragment); the moov goes out with the first
        // one, so that the audio's edit list (priming, or the previous part's overlap)
        // can be written; custom tags are kept.
        av_dict_set(&options, "movflags",
                    "frag_custom+empty_moov+delay_moov+default_base_moof+use_metadata_tags", 0);
        // No "frag_interleave": with fragments cut by hand, FFmpeg 5.1's muxer then
        // carries samples across cuts and a part's sound comes out short.
        const int written = avformat_write_header(format_.get(), &options);
        av_dict_free(&options);
        ff::check(written, "Couldn’t create the recording file");
        syncer_ = std::thread([this] { syncLoop(); });
    } catch (...) {
        format_.reset();
        io_.reset();
        ff::removePartial(path_); // while still locked: nobody sees it unlocked
        lock_ = PartLock();
        fd_ = -1;
        throw;
    }
}

PartFile::~PartFile() {
    close();
}

int PartFile::writeBytes(void* self, std::uint8_t* bytes, int size) {
    auto* part = static_cast<PartFile*>(self);
    int done = 0;
    while (done < size) {
        const ssize_t written =
            ::write(part->fd_, bytes + done, static_cast<std::size_t>(size - done));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return AVERROR(errno);
        }
        done += static_cast<int>(written);
    }
    return size;
}

std::int64_t PartFile::seekBytes(void* self, std::int64_t offset, int whence) {
    auto* part = static_cast<PartFile*>(self);
    if (whence == AVSEEK_SIZE) {
        struct stat status {};
        return ::fstat(part->fd_, &status) == 0 ? status.st_size : AVERROR(errno);
    }
    const off_t position = ::lseek(part->fd_, offset, whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : position;
}

void PartFile::fail(const std::string& doing, int code) {
    if (failure_.empty()) {
        failure_ = doing + " “" + path_.filename().string() + "”: " + ff::errorText(code) + ".";
    }
}

void PartFile::markFailed(const std::string& reason) {
    if (failure_.empty()) {
        failure_ = reason;
    }
}

void PartFile::writePacket(AVPacket& packet) {
    if (failed() || trailerWritten_) {
        return;
    }
    // Sound reaches the part up to a second after the picture of the same moment (the
    // source's latency, the encoder's delay), and the first fragment holds the picture
    // from before the first sound: libavformat's queue hands the packets to the muxer in
    // time order. flushFragment() empties it, so each fragment still takes everything
    // written before its cut.
    const int written = av_interleaved_write_frame(format_.get(), &packet);
    if (written < 0) {
        fail("Couldn’t write the recording file", written);
    }
}

bool PartFile::audioStarted() const {
    return std::all_of(audioSeen_.begin(), audioSeen_.end(), [](bool seen) { return seen; });
}

void PartFile::writeVideo(AVPacket& packet, AVRational timeBase) {
    // A third of a second: a kill loses up to a fragment, the packet held back and the
    // time until the writer's next picture of a still screen, so under a second.
    fragmentLength_ = std::max<std::int64_t>(1, timeBase.den / std::max(1, 3 * timeBase.num));
    videoTimeBase_ = timeBase;
    if (holdsVideo()) {
        writeHeldVideo(packet.pts);
    }
    if (packet.pts >= fragmentStart_ + fragmentLength_ && audioStarted()) {
        flushFragment();
        fragmentStart_ = packet.pts;
    }
    if (!heldVideo_) {
        heldVideo_ = ff::makePacket();
    }
    av_packet_move_ref(heldVideo_.get(), &packet);
}

void PartFile::endVideo(std::int64_t endPts) {
    if (holdsVideo()) {
        writeHeldVideo(endPts);
    }
}

void PartFile::writeHeldVideo(std::int64_t nextPts) {
    AVPacket& held = *heldVideo_;
    held.duration = std::max<std::int64_t>(1, nextPts - held.pts);
    held.stream_index = 0;
    av_packet_rescale_ts(&held, videoTimeBase_, format_->streams[0]->time_base);
    writePacket(held);
    av_packet_unref(&held);
}

void PartFile::writeAudio(int track, AVPacket& packet) {
    audioSeen_[static_cast<std::size_t>(track)] = true;
    AVStream* stream = format_->streams[1 + track];
    packet.stream_index = stream->index;
    av_packet_rescale_ts(&packet, AVRational{1, 48000}, stream->time_base);
    writePacket(packet);
}

void PartFile::flushFragment() {
    if (failed() || trailerWritten_) {
        return;
    }
    const int queued = av_interleaved_write_frame(format_.get(), nullptr);
    const int flushed = queued < 0 ? queued : av_write_frame(format_.get(), nullptr);
    if (flushed < 0) {
        fail("Couldn’t write the recording file", flushed);
        return;
    }
    avio_flush(format_->pb);
    if (format_->pb->error < 0) {
        fail("Couldn’t write the recording file", format_->pb->error);
        return;
    }
    {
        std::lock_guard lock(syncMutex_);
        syncRequested_ = true;
    }
    syncWake_.notify_one();
}

void PartFile::cutFragment() {
    if (audioStarted()) {
        flushFragment();
    }
}

void PartFile::writeTrailer() {
    if (trailerWritten_ || failed()) {
        return;
    }
    if (holdsVideo()) {
        writeHeldVideo(heldVideo_->pts + 1); // endVideo() was not called: one frame
    }
    const int written = av_write_trailer(format_.get());
    trailerWritten_ = true;
    avio_flush(format_->pb);
    if (written < 0 || format_->pb->error < 0) {
        fail("Couldn’t finish the recording file", written < 0 ? written : format_->pb->error);
    }
}

void PartFile::syncLoop() {
    std::unique_lock lock(syncMutex_);
    for (;;) {
        syncWake_.wait(lock, [this] { return syncRequested_ || syncQuit_; });
        if (syncQuit_) {
            return;
        }
        syncRequested_ = false;
        lock.unlock();
        ::fdatasync(fd_);
        lock.lock();
    }
}

void PartFile::close() {
    if (fd_ < 0) {
        return;
    }
    if (syncer_.joinable()) {
        {
            std::lock_guard lock(syncMutex_);
            syncQuit_ = true;
        }
        syncWake_.notify_one();
        syncer_.join();
    }
    if (format_ && format_->pb != nullptr) {
        avio_flush(format_->pb);
    }
    ::fdatasync(fd_);
    lock_ = PartLock(); // closes the file; the lock lasts while a shared hold remains
    fd_ = -1;
    format_.reset();
    io_.reset();
}

} // namespace lumenvale::record
