#include "LumenvaleMedia/RecordingPipeline.h"

#include "record/AudioFeed.h"
#include "record/FrameConverter.h"
#include "record/PartWriter.h"
#include "record/VideoEncoder.h"

#include <atomic>
#include <libyuv/planar_functions.h>
#include <mutex>
#include <utility>

namespace lumenvale {

using namespace record;

// The controlling side of a recording: the sources, the capture thread's handler
// that keeps the latest picture converted to I420 (redoing only the rows the source
// says changed) and hands it to the writer, copied into a picture of its queue, or,
// when nothing changed, as a repeat of the frame before without any copy; and the
// bookkeeping of which frames belong to which part (under captureMutex_, which pause()
// and resume() take too, so a part's extent is exact the moment it is detached).
class RecordingPipeline::Engine {
  public:
    Engine(RecordingSources sources, Codec codec, std::filesystem::path partsFolder,
           LocalDateTime startedAt, Handlers handlers)
        : sources_(std::move(sources)), codec_(codec), partsFolder_(std::move(partsFolder)),
          startedAt_(startedAt), handlers_(std::move(handlers)), id_(Uuid::random()) {
        if (!sources_.video) {
            throw MediaError("Nothing was chosen to record.");
        }
        size_ = sources_.video->size();
        fps_ = sources_.video->fps();
    }

    ~Engine() { stop(); }

    std::filesystem::path start();
    std::filesystem::path pause();
    std::filesystem::path resume();
    void stop();
    std::vector<PartLock> takePartLocks() { return std::exchange(partLocks_, {}); }

    Uuid id() const { return id_; }
    RecordingStats stats() const;

  private:
    enum class State { idle, recording, paused, stopped };

    PartSetup makePart();
    void attach(PartSetup setup);
    std::int64_t detach();
    void onFrame(const VideoFrame& frame);
    void onSourceStopped(const std::string& reason);
    void stopAudioSources();

    RecordingSources sources_;
    Codec codec_;
    std::filesystem::path partsFolder_;
    LocalDateTime startedAt_;
    Handlers handlers_;
    Uuid id_;
    PixelSize size_;
    int fps_ = 30;

    State state_ = State::idle; // controlling thread
    int partsMade_ = 0;
    std::filesystem::path currentPath_;
    std::vector<PartLock> partLocks_; // one per part made, until handed over
    std::unique_ptr<AudioFeed> audio_;
    std::unique_ptr<PartWriter> writer_;
    std::unique_ptr<FrameConverter> converter_; // capture thread
    // The latest frame converted (capture thread, under captureMutex_): it matches the
    // source's frame before when `keptCurrent_`, and the writer's last queued picture
    // when `writerCurrent_`.
    ff::Frame kept_;
    bool keptCurrent_ = false;
    bool writerCurrent_ = false;
    std::atomic<bool> stoppedReported_{false};

    mutable std::mutex captureMutex_;
    bool attached_ = false;
    int attachedPart_ = 0;
    std::int64_t framesBefore_ = 0; // frames of the closed parts
    std::int64_t partFirstIndex_ = -1;
    std::int64_t partLastIndex_ = -1;
    std::int64_t lateDrops_ = 0; // dropped since the part's last queued frame
    std::int64_t framesDropped_ = 0;
};

PartSetup RecordingPipeline::Engine::makePart() {
    PartSetup setup;
    setup.number = partsMade_ + 1;
    setup.encoder = makeVideoEncoder(codec_, size_, fps_);
    {
        std::lock_guard lock(captureMutex_);
        setup.framesBefore = framesBefore_;
    }
    PartTags tags;
    tags.recording = id_;
    tags.partNumber = setup.number;
    tags.startedAt = startedAt_;
    tags.audioOffset = (setup.framesBefore * audioRate + fps_ / 2) / fps_;
    const std::filesystem::path path = partsFolder_ / partFileName(Uuid::random());
    setup.file = std::make_unique<PartFile>(path, *setup.encoder, audio_->trackSpecs(), tags);
    partLocks_.push_back(setup.file->shareLock());
    ++partsMade_;
    return setup;
}

void RecordingPipeline::Engine::attach(PartSetup setup) {
    std::lock_guard lock(captureMutex_);
    currentPath_ = setup.file->path();
    attachedPart_ = setup.number;
    partFirstIndex_ = partLastIndex_ = -1;
    lateDrops_ = 0;
    writer_->openPart(std::move(setup));
    attached_ = true;
    writerCurrent_ = false; // a part's first frame is a picture of its own
}

std::int64_t RecordingPipeline::Engine::detach() {
    std::lock_guard lock(captureMutex_);
    attached_ = false;
    if (partFirstIndex_ >= 0) {
        framesBefore_ += partLastIndex_ - partFirstIndex_ + 1;
    }
    framesDropped_ += lateDrops_;
    lateDrops_ = 0;
    partFirstIndex_ = partLastIndex_ = -1;
    writer_->closePart(framesBefore_);
    return framesBefore_;
}

std::filesystem::path RecordingPipeline::Engine::start() {
    if (state_ != State::idle) {
        throw MediaError("This recording has already started.");
    }
    audio_ = std::make_unique<AudioFeed>(sources_.systemAudio != nullptr,
                                         sources_.microphone != nullptr);
    PartWriter::Handlers writerHandlers;
    writerHandlers.partFinished = handlers_.partFinished;
    writerHandlers.failed = [this](const std::string& reason) {
        onSourceStopped(reason);
    };
    writer_ = std::make_unique<PartWriter>(size_, fps_, *audio_, std::move(writerHandlers));
    converter_ = std::make_unique<FrameConverter>(size_);
    kept_ = makeRecordingPicture(size_);
    PartSetup first = makePart();
    const std::filesystem::path path = first.file->path();
    attach(std::move(first));
    try {
        const auto startAudio = [this](AudioSource* source, AudioTimeline* timeline) {
            if (source == nullptr) {
                return;
            }
            source->start([timeline](const AudioChunk& chunk) { timeline->append(chunk); },
                          [this, timeline](const std::string& reason) {
                              timeline->markEnded();
                              onSourceStopped(reason);
                          });
        };
        startAudio(sources_.systemAudio.get(), audio_->systemTimeline());
        startAudio(sources_.microphone.get(), audio_->microphoneTimeline());
        sources_.video->start([this](const VideoFrame& frame) { onFrame(frame); },
                              [this](const std::string& reason) { onSourceStopped(reason); });
    } catch (...) {
        sources_.video->stop();
        stopAudioSources();
        writer_.reset(); // its threads never ran: the queued part is closed unreported
        ff::removePartial(path);
        partLocks_.pop_back(); // after the removal: the file was never seen unlocked
        --partsMade_;
        throw;
    }
    writer_->startThreads();
    state_ = State::recording;
    return path;
}

std::filesystem::path RecordingPipeline::Engine::pause() {
    if (state_ != State::recording) {
        return {};
    }
    detach();
    state_ = State::paused;
    return currentPath_;
}

std::filesystem::path RecordingPipeline::Engine::resume() {
    if (state_ != State::paused) {
        return {};
    }
    PartSetup setup = makePart();
    const std::filesystem::path path = setup.file->path();
    attach(std::move(setup));
    state_ = State::recording;
    return path;
}

void RecordingPipeline::Engine::stop() {
    if (state_ == State::idle || state_ == State::stopped) {
        return;
    }
    sources_.video->stop();
    if (state_ == State::recording) {
        detach();
    }
    // The sound sources keep running until the writer has taken the last part's sound.
    writer_->finish();
    stopAudioSources();
    state_ = State::stopped;
}

void RecordingPipeline::Engine::stopAudioSources() {
    if (sources_.systemAudio) {
        sources_.systemAudio->stop();
    }
    if (sources_.microphone) {
        sources_.microphone->stop();
    }
}

void RecordingPipeline::Engine::onFrame(const VideoFrame& frame) {
    std::lock_guard lock(captureMutex_);
    if (!attached_ || frame.index <= partLastIndex_) {
        keptCurrent_ = false; // not converted while paused: the next frame is, whole
        return;
    }
    if (frame.size != size_ || frame.bgra == nullptr) {
        keptCurrent_ = false;
        ++lateDrops_;
        return;
    }
    const bool partial = keptCurrent_ && frame.change == FrameChange::rows;
    const bool same = partial && frame.changedRows.empty();
    if (!partial) {
        converter_->convert(frame.bgra, frame.strideBytes, *kept_);
    } else if (!same) {
        converter_->convert(frame.bgra, frame.strideBytes, *kept_, frame.changedRows);
    }
    keptCurrent_ = true;
    if (!same) {
        writerCurrent_ = false;
    }
    if (writerCurrent_ && partFirstIndex_ >= 0) {
        if (!writer_->queueRepeat(frame.index, frame.time, attachedPart_)) {
            ++lateDrops_;
            return;
        }
    } else {
        int slot = -1;
        AVFrame* picture = writer_->acquirePicture(slot);
        if (picture == nullptr) {
            ++lateDrops_;
            return;
        }
        av_frame_copy(picture, kept_.get());
        writer_->queueFrame(slot, frame.index, frame.time, attachedPart_);
        writerCurrent_ = true;
    }
    if (partFirstIndex_ < 0) {
        partFirstIndex_ = frame.index;
        framesDropped_ += lateDrops_;
    } else {
        framesDropped_ += frame.index - partLastIndex_ - 1;
    }
    lateDrops_ = 0;
    partLastIndex_ = frame.index;
}

void RecordingPipeline::Engine::onSourceStopped(const std::string& reason) {
    if (stoppedReported_.exchange(true)) {
        return;
    }
    if (handlers_.stopped) {
        handlers_.stopped(reason);
    }
}

RecordingStats RecordingPipeline::Engine::stats() const {
    RecordingStats stats;
    std::lock_guard lock(captureMutex_);
    const std::int64_t current = partFirstIndex_ >= 0 ? partLastIndex_ - partFirstIndex_ + 1 : 0;
    stats.framesDropped = framesDropped_ + lateDrops_;
    stats.framesRepeated = sources_.video->stats().repeated;
    stats.parts = partsMade_;
    stats.writtenSeconds = static_cast<double>(framesBefore_ + current) / fps_;
    if (writer_) {
        stats.framesWritten = writer_->framesWritten();
    }
    if (audio_) {
        stats.audioSamplesWritten = audio_->samplesFed();
    }
    return stats;
}

RecordingPipeline::RecordingPipeline(RecordingSources sources, Codec codec,
                                     std::filesystem::path partsFolder, LocalDateTime startedAt,
                                     Handlers handlers)
    : engine_(std::make_unique<Engine>(std::move(sources), codec, std::move(partsFolder), startedAt,
                                       std::move(handlers))) {}

RecordingPipeline::~RecordingPipeline() = default;

std::filesystem::path RecordingPipeline::start() {
    return engine_->start();
}
std::filesystem::path RecordingPipeline::pause() {
    return engine_->pause();
}
std::filesystem::path RecordingPipeline::resume() {
    return engine_->resume();
}
void RecordingPipeline::stop() {
    engine_->stop();
}
std::vector<PartLock> RecordingPipeline::takePartLocks() {
    return engine_->takePartLocks();
}
Uuid RecordingPipeline::recordingID() const {
    return engine_->id();
}
RecordingStats RecordingPipeline::stats() const {
    return engine_->stats();
}

} // namespace lumenvale
