#pragma once

#include "record/AudioFeed.h"
#include "record/FramePool.h"
#include "record/PartFile.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace lumenvale::record {

// A part as the controlling thread makes it: the file (header written) and the
// part's own video encoder, both made before the part is attached so that failures
// are reported to the caller of start() or resume().
struct PartSetup {
    int number = 1;
    std::unique_ptr<PartFile> file;
    ff::CodecContext encoder;
    std::int64_t framesBefore = 0; // video frames of the recording before this part
};

// The recording's writer: one thread that turns queued pictures into video packets,
// feeds each part exactly the sound of its video's time span, cuts fragments, and
// closes finished parts; and one finishing thread that waits for each closed part to
// reach the disk and reports it. A part with sound that was closed by a pause is
// finished when a later part has its first frame or the recording ends, whichever
// comes first.
//
// Ordering: commands are handled in the order they were queued. A part's sound is
// the stretch [t0, t0 + d) of the steady clock, where t0 is the capture time of the
// part's first frame and d its video duration (frames spanned / fps); the audio
// encoders take the parts' stretches one after another, so the recording's sample
// counter after part k is round(frames of parts 1..k x 48000 / fps).
class PartWriter {
  public:
    struct Handlers {
        std::function<void(const std::filesystem::path&)> partFinished; // finishing thread
        std::function<void(const std::string& reason)> failed;          // writer thread
    };

    PartWriter(PixelSize size, int fps, AudioFeed& audio, Handlers handlers);
    ~PartWriter();
    PartWriter(const PartWriter&) = delete;
    PartWriter& operator=(const PartWriter&) = delete;

    void startThreads();

    // Capture thread: a writable picture for the next frame, or nothing when the
    // writer is behind (the frame is then dropped).
    AVFrame* acquirePicture(int& slot);
    // Capture thread: queues the picture parked in `slot` for part `part`.
    void queueFrame(int slot, std::int64_t index, std::chrono::steady_clock::duration time,
                    int part);
    // Capture thread: queues frame `index` of part `part` as the same picture as the
    // frame queued before it in that part. It is mostly not encoded at all: the frame
    // before lasts longer. The part must have had a frame queued with queueFrame(). False (nothing
    // queued) when the writer is a whole queue of frames behind: the frame is then dropped, as when
    // no picture is free.
    bool queueRepeat(std::int64_t index, std::chrono::steady_clock::duration time, int part);
    void releasePicture(int slot);

    // Controlling thread.
    void openPart(PartSetup setup);
    // Ends the newest part after the frames queued so far; `totalFrames` is the
    // recording's frame count including that part.
    void closePart(std::int64_t totalFrames);
    // No more parts: the audio encoders are drained into the last part still
    // waiting for its sound, everything is closed, and both threads end. Blocks.
    void finish();

    std::int64_t framesWritten() const { return framesWritten_; }

  private:
    struct Command {
        enum class Kind { frame, repeat, open, close, finish } kind = Kind::frame;
        int slot = -1;
        std::int64_t index = 0;
        std::chrono::steady_clock::duration time{};
        int part = 0;
        std::int64_t totalFrames = 0;
        std::unique_ptr<PartSetup> setup;
    };
    struct Part {
        PartSetup setup;
        ff::Packet packet;
        std::int64_t firstIndex = -1;
        std::int64_t framesSpanned = 0;
        std::int64_t lastEncodedPts = -1;
        std::int64_t nextKeyframePts = 0;
        std::int64_t audioStart = 0;         // recording sample counter at the part's start
        std::int64_t audioStartPosition = 0; // steady-clock position of the first frame
        std::int64_t audioEnd = -1;          // known once closed
        bool videoClosed = false;
        bool soundOnDisk = false; // waiting for a later part, its sound so far cut
    };

    void push(Command command);
    void writerLoop();
    void handle(Command& command);
    void writeFrame(Command& command);
    // Lets go of the picture kept for repeats.
    void releaseHeld();
    void encodeVideo(Part& part, AVFrame* picture);
    void closeVideo(std::int64_t totalFrames);
    void pumpAudio(bool finishing);
    void retire(Part& part);
    void reportFailure(const Part& part);
    void finishingLoop();
    std::int64_t samplesAfter(std::int64_t frames) const;

    int fps_;
    const std::int64_t keyframeIntervalFrames_;
    // The longest a still picture goes without being encoded again.
    const std::int64_t stillRefreshFrames_;
    AudioFeed& audio_;
    Handlers handlers_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Command> commands_;
    std::int64_t queuedFrames_ = 0; // frame and repeat commands in commands_
    FramePool pool_;                // guarded by mutex_

    // Writer thread only.
    std::deque<std::unique_ptr<Part>> parts_; // oldest first; the back one takes video
    bool finishing_ = false;
    bool failureReported_ = false;
    // The picture of the last frame encoded, kept for the repeats that follow it.
    int heldSlot_ = -1;
    std::atomic<std::int64_t> framesWritten_{0};

    // The finishing thread's queue.
    std::mutex closeMutex_;
    std::condition_variable closeWake_;
    std::deque<std::unique_ptr<PartFile>> closing_;
    bool closingDone_ = false;

    std::thread writer_;
    std::thread finisher_;
};

} // namespace lumenvale::record
