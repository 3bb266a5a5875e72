#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"
#include "LumenvaleMedia/AudioSource.h"
#include "LumenvaleMedia/PartLock.h"
#include "LumenvaleMedia/VideoSource.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lumenvale {

// What a recording captures. The pipeline owns the sources from construction on.
// `video` is required; either audio source may be absent. `systemAudio` must be of
// kind AudioKind::system and `microphone` of kind AudioKind::microphone.
struct RecordingSources {
    std::unique_ptr<VideoSource> video;
    std::unique_ptr<AudioSource> systemAudio;
    std::unique_ptr<AudioSource> microphone;
};

// Counters of a recording, read at any time from any thread.
struct RecordingStats {
    std::int64_t framesWritten = 0;  // video frames encoded into parts
    std::int64_t framesDropped = 0;  // due frames lost: by the capture, or because
                                     // encoding fell behind
    std::int64_t framesRepeated = 0; // frames the capture delivered again unchanged
    std::int64_t parts = 0;          // parts started so far
    // Video time of all parts so far (closed parts plus the current one), seconds.
    double writtenSeconds = 0;
    // Audio samples (per channel, 48 kHz) handed to the encoders so far.
    std::int64_t audioSamplesWritten = 0;
};

// The recording engine of the media layer: runs the capture and writes one part
// file per recorded stretch, in the layout of docs/recording-format.md: fragmented
// MPEG-4 "Lumenvale-<UUID>.mp4" in the parts folder, the video in `codec`, an AAC
// track per audio source (plus a mix when both are recorded), audio gapless and in
// sync across parts.
//
// Lifecycle: constructed idle; start() begins capturing into part 1; pause() and
// resume() close a part and open the next while the capture keeps running; stop()
// ends the recording. A pipeline records once: after stop() it cannot start again.
//
// Threads: every member function is called from one controlling thread (the
// application's GUI thread), never concurrently; stats() and recordingID() from any
// thread. The handlers run on other threads (named at each handler) and must not
// call back into the pipeline: post a queued call to the controlling thread instead.
//
// Inside, the capture thread converts each frame to I420 into a queue of about a
// third of a second; one writer thread encodes, muxes and feeds the audio encoders;
// each part has a sync thread (fdatasync per fragment); a finishing thread closes
// detached parts. A frame that finds the queue full is dropped (counted in stats()),
// so the recording never falls behind real time.
class RecordingPipeline {
  public:
    // Called exactly once per part that start() or resume() returned, when its file
    // is complete, on disk and closed (the writer's hold on its lock released; the
    // recording's hold stays, see takePartLocks()): after pause(), in the
    // background once the next part has its first frame (a part with sound waits for
    // the last of it, which the audio encoders hold until then); after stop(), before
    // stop() returns. A part whose writing failed is reported too (a failed part
    // counts as finished); its file holds what was written. Runs on the pipeline's
    // finishing thread, one part after another in recording order.
    using PartFinishedHandler = std::function<void(const std::filesystem::path& part)>;
    // Called at most once, when a source ends by itself (the window closed, the
    // display is gone, the sound server went away) or a part can no longer be
    // written (the disk is full). The argument is the user-facing reason, such as
    // "The window closed.". Frames and sound stop arriving; the controlling thread
    // should call stop() to finish the recording. Runs on the capture thread, a sound
    // source's thread or the writer thread, whichever noticed.
    using StoppedHandler = std::function<void(const std::string& reason)>;

    struct Handlers {
        PartFinishedHandler partFinished;
        StoppedHandler stopped;
    };

    // `codec` must be one the linked libavcodec can encode (resolve it first with
    // resolve(codec, availableVideoFourCCs())). `partsFolder` must exist (the
    // application passes QDir::tempPath()). `startedAt` is the local wall-clock
    // time the recording started; it is written into every part for recovery.
    // Does not touch any device or file yet.
    RecordingPipeline(RecordingSources sources, Codec codec, std::filesystem::path partsFolder,
                      LocalDateTime startedAt, Handlers handlers);
    // Stops the recording as stop() does, if it is running.
    ~RecordingPipeline();

    RecordingPipeline(const RecordingPipeline&) = delete;
    RecordingPipeline& operator=(const RecordingPipeline&) = delete;

    // Creates part 1 and starts the sources. Returns the part's path. Throws
    // MediaError when the file cannot be created or a source cannot start; then
    // nothing is left running and no part file remains.
    std::filesystem::path start();

    // Detaches the current part and returns its path: its file is finalised in the
    // background (partFinished follows) while the capture keeps running; frames and
    // sound are dropped until resume(). Only while recording; otherwise it does
    // nothing and returns an empty path.
    std::filesystem::path pause();

    // Attaches a new part and returns its path. Only while paused; otherwise it does
    // nothing and returns an empty path. Throws MediaError when the part cannot be
    // created (the folder is gone, the disk is full); the pipeline then stays paused.
    std::filesystem::path resume();

    // Stops the capture, writes the rest of the current part (if any), flushes the
    // audio encoders into it and waits for every part to be finalised, so all
    // partFinished calls have been made when it returns. Blocks for the encoders'
    // tail and up to half a second for late sound. Idempotent; a no-op before start().
    void stop();

    // Hands over the recording's hold on the lock of every part made so far
    // (docs/recording-format.md, "Part files"). The pipeline holds each part's lock
    // from before its file exists until the pipeline is destroyed or hands the locks
    // over, so recovery in any process leaves the parts of a live recording alone,
    // also once their writing ended. Call after stop() and keep the locks until the
    // movie is saved and the parts are removed (or the save failed): saving in the
    // same process needs no lock of its own. Locks handed over are no longer the
    // pipeline's.
    std::vector<PartLock> takePartLocks();

    // The UUID shared by all parts of this recording (the `lumenvale_recording` tag).
    Uuid recordingID() const;
    RecordingStats stats() const;

  private:
    class Engine;
    std::unique_ptr<Engine> engine_;
};

// The fourCCs of the video encoders the linked libavcodec offers, in Codec order:
// "avc1" when libx264 is present, "hvc1" when libx265 is. Feed it to resolve().
std::vector<std::string> availableVideoFourCCs();

} // namespace lumenvale
