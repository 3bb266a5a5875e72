#pragma once

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"
#include "LumenvaleMedia/PartLock.h"
#include "ffmpeg/Handles.h"

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumenvale::record {

// What every part says about its recording (format-level tags of the file).
struct PartTags {
    Uuid recording;               // lumenvale_recording
    int partNumber = 1;           // lumenvale_part
    LocalDateTime startedAt;      // lumenvale_started, YYYY-MM-DDTHH:MM:SS
    std::int64_t audioOffset = 0; // lumenvale_audio_offset: recording samples before this part
};

struct AudioTrackSpec {
    std::string title; // the stream's title and handler name
    const AVCodecContext* encoder = nullptr;
    bool isDefault = false;
};

// The name of a part file: "Lumenvale-" + upper-case UUID + ".mp4".
std::string partFileName(const Uuid& id);

// The writing of one part file (docs/recording-format.md): created already locked
// (PartLock::create: never over an existing file, mode 0600), its lock held until
// close() and as long as a hold from shareLock() remains; fragmented MPEG-4 with the
// moov written with the first fragment, a fragment cut every third of a second of
// video, and each fragment flushed to the file and fdatasync'ed by the part's own sync
// thread, so the writer never waits for the disk.
//
// Writing never throws: the first failure is kept (failure()), later writes are
// ignored, and the file keeps what was written. Threads: construction and the
// write calls from one thread at a time (the writer); close() from any one thread.
class PartFile {
  public:
    // Creates the file, locked, and writes its header. Throws MediaError (and leaves
    // no file) when it cannot be created.
    PartFile(std::filesystem::path path, const AVCodecContext& video,
             const std::vector<AudioTrackSpec>& audio, const PartTags& tags);
    // Closes as close() does if that has not happened.
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Another hold on the part's lock, which keeps it locked after close(): the
    // recording's, until its movie is saved. Take it before close().
    PartLock shareLock() const { return lock_.share(); }
    int audioTracks() const { return audioTracks_; }

    // A packet of the video encoder (time base 1/fps, pts from 0, no reordering). The
    // frames need not be evenly spaced: each packet is held until the next one comes,
    // which gives it its exact duration (the muxer would otherwise close a fragment's
    // last sample with a guess and move the next fragment's frames to fit). Cuts a
    // fragment before the packet when a third of a second of video has gone into the
    // current one.
    void writeVideo(AVPacket& packet, AVRational timeBase);
    // The video has ended at `endPts` (encoder time base): the packet held back is
    // written, lasting until then. Before cutFragment() or writeTrailer().
    void endVideo(std::int64_t endPts);
    // A packet of audio track `track` (0-based), time base 1/48000, pts relative to
    // the part's start.
    void writeAudio(int track, AVPacket& packet);
    // Cuts a fragment now, with what was written since the last one, and has it
    // synced: for a part whose video has ended while its last sound is still to come.
    // Before every audio track has a packet it waits, as the first cut always does.
    void cutFragment();
    // Writes the last fragment and the file's index.
    void writeTrailer();
    // Waits until everything written is on disk and closes the file, releasing this
    // object's hold on the lock. Idempotent. Never throws.
    void close();

    // Marks the part as failed with a user-readable reason (the first one is kept).
    void markFailed(const std::string& reason);
    bool failed() const { return !failure_.empty(); }
    const std::string& failure() const { return failure_; }

  private:
    struct FormatDeleter {
        void operator()(AVFormatContext* context) const;
    };
    struct IoDeleter {
        void operator()(AVIOContext* io) const;
    };

    static int writeBytes(void* self, std::uint8_t* bytes, int size);
    static std::int64_t seekBytes(void* self, std::int64_t offset, int whence);
    void writePacket(AVPacket& packet);
    bool holdsVideo() const { return heldVideo_ && heldVideo_->data != nullptr; }
    // Writes the held video packet, lasting until `nextPts` (encoder time base).
    void writeHeldVideo(std::int64_t nextPts);
    bool audioStarted() const;
    void flushFragment();
    void fail(const std::string& doing, int code);
    void syncLoop();

    std::filesystem::path path_;
    PartLock lock_;
    int fd_ = -1; // lock_'s descriptor, written through
    int audioTracks_ = 0;
    std::unique_ptr<AVIOContext, IoDeleter> io_;
    std::unique_ptr<AVFormatContext, FormatDeleter> format_;
    std::int64_t fragmentStart_ = 0;  // video pts (encoder time base) of the current fragment
    std::int64_t fragmentLength_ = 1; // video pts per fragment: a third of a second
    ff::Packet heldVideo_;            // the newest video packet, until its duration is known
    AVRational videoTimeBase_{1, 30}; // the encoder's, of heldVideo_
    // The first fragment waits until every audio track has a packet, so the moov
    // written with it knows where each track starts.
    std::vector<bool> audioSeen_;
    bool trailerWritten_ = false;
    std::string failure_;

    // The sync thread: fdatasync after each fragment, off the writer thread.
    std::mutex syncMutex_;
    std::condition_variable syncWake_;
    bool syncRequested_ = false;
    bool syncQuit_ = false;
    std::thread syncer_;
};

} // namespace lumenvale::record
