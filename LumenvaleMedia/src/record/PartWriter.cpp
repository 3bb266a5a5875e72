#include "record/PartWriter.h"

#include "record/VideoEncoder.h"

#include <algorithm>
#include <numeric>

namespace lumenvale::record {

namespace {
// How long the writer sleeps when nothing is queued: sound arrives every 20 ms.
constexpr auto idleWait = std::chrono::milliseconds(10);

// About a third of a second, prime to the keyframe interval: the frames of a still
// screen then still lie on no coarser grid than 1/fps, so a reader can tell the
// recording's rate from its frames' times.
std::int64_t stillRefreshFramesAt(int fps) {
    std::int64_t frames = std::max(1, fps / 3);
    while (frames > 1 && std::gcd(frames, std::int64_t{keyframeIntervalFramesAt(fps)}) != 1) {
        --frames;
    }
    return frames;
}

} // namespace

PartWriter::PartWriter(PixelSize size, int fps, AudioFeed& audio, Handlers handlers)
    : fps_(fps), keyframeIntervalFrames_(keyframeIntervalFramesAt(fps)),
      stillRefreshFrames_(stillRefreshFramesAt(fps)), audio_(audio), handlers_(std::move(handlers)),
      pool_(size, fps) {}

PartWriter::~PartWriter() {
    if (writer_.joinable()) {
        finish();
    }
}

void PartWriter::startThreads() {
    writer_ = std::thread([this] { writerLoop(); });
    finisher_ = std::thread([this] { finishingLoop(); });
}

AVFrame* PartWriter::acquirePicture(int& slot) {
    std::lock_guard lock(mutex_);
    const std::optional<int> free = pool_.acquire();
    if (!free) {
        return nullptr;
    }
    slot = *free;
    AVFrame* picture = &pool_.frame(slot);
    // The encoder copies a picture when it takes it, so the buffers are free again;
    // should one still be referenced, this gives the slot buffers of its own.
    if (av_frame_make_writable(picture) < 0) {
        pool_.release(slot);
        return nullptr;
    }
    return picture;
}

void PartWriter::releasePicture(int slot) {
    std::lock_guard lock(mutex_);
    pool_.release(slot);
}

void PartWriter::push(Command command) {
    {
        std::lock_guard lock(mutex_);
        if (command.kind == Command::Kind::frame || command.kind == Command::Kind::repeat) {
            ++queuedFrames_;
        }
        commands_.push_back(std::move(command));
    }
    wake_.notify_one();
}

void PartWriter::queueFrame(int slot, std::int64_t index, std::chrono::steady_clock::duration time,
                            int part) {
    Command command;
    command.kind = Command::Kind::frame;
    command.slot = slot;
    command.index = index;
    command.time = time;
    command.part = part;
    push(std::move(command));
}

bool PartWriter::queueRepeat(std::int64_t index, std::chrono::steady_clock::duration time,
                             int part) {
    {
        std::lock_guard lock(mutex_);
        if (queuedFrames_ >= pool_.depth()) {
            return false;
        }
    }
    Command command;
    command.kind = Command::Kind::repeat;
    command.index = index;
    command.time = time;
    command.part = part;
    push(std::move(command));
    return true;
}

void PartWriter::openPart(PartSetup setup) {
    Command command;
    command.kind = Command::Kind::open;
    command.setup = std::make_unique<PartSetup>(std::move(setup));
    push(std::move(command));
}

void PartWriter::closePart(std::int64_t totalFrames) {
    Command command;
    command.kind = Command::Kind::close;
    command.totalFrames = totalFrames;
    push(std::move(command));
}

void PartWriter::finish() {
    if (!writer_.joinable()) {
        return;
    }
    Command command;
    command.kind = Command::Kind::finish;
    push(std::move(command));
    writer_.join();
    {
        std::lock_guard lock(closeMutex_);
        closingDone_ = true;
    }
    closeWake_.notify_one();
    finisher_.join();
}

std::int64_t PartWriter::samplesAfter(std::int64_t frames) const {
    return (frames * audioRate + fps_ / 2) / fps_;
}

void PartWriter::writerLoop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait_for(lock, idleWait, [this] { return !commands_.empty(); });
        while (!commands_.empty()) {
            Command command = std::move(commands_.front());
            commands_.pop_front();
            if (command.kind == Command::Kind::frame || command.kind == Command::Kind::repeat) {
                --queuedFrames_;
            }
            lock.unlock();
            handle(command);
            lock.lock();
        }
        lock.unlock();
        pumpAudio(finishing_);
        lock.lock();
        if (finishing_ && parts_.empty()) {
            return;
        }
    }
}

void PartWriter::handle(Command& command) {
    switch (command.kind) {
    case Command::Kind::frame:
    case Command::Kind::repeat:
        writeFrame(command);
        break;
    case Command::Kind::open: {
        auto part = std::make_unique<Part>();
        part->setup = std::move(*command.setup);
        part->packet = ff::makePacket();
        part->audioStart = samplesAfter(part->setup.framesBefore);
        parts_.push_back(std::move(part));
        break;
    }
    case Command::Kind::close:
        closeVideo(command.totalFrames);
        break;
    case Command::Kind::finish:
        if (!parts_.empty() && !parts_.back()->videoClosed) {
            const Part& last = *parts_.back();
            closeVideo(last.setup.framesBefore + last.framesSpanned);
        }
        finishing_ = true;
        break;
    }
}

void PartWriter::writeFrame(Command& command) {
    const bool repeat = command.kind == Command::Kind::repeat;
    Part* part = parts_.empty() ? nullptr : parts_.back().get();
    if (part == nullptr || part->videoClosed || part->setup.number != command.part ||
        (part->firstIndex >= 0 && command.index < part->firstIndex + part->framesSpanned) ||
        (repeat && (heldSlot_ < 0 || part->firstIndex < 0))) {
        if (!repeat) {
            releasePicture(command.slot);
        }
        return;
    }
    if (part->firstIndex < 0) {
        part->firstIndex = command.index;
        part->audioStartPosition = audioPosition(command.time);
    }
    if (!repeat) {
        releaseHeld();
        heldSlot_ = command.slot;
    }
    const std::int64_t pts = command.index - part->firstIndex;
    part->framesSpanned = pts + 1;
    // Keyframes every two seconds of movie time, also over a still screen; between
    // them, a picture unchanged since the last one encoded is not encoded again (the
    // frame before lasts longer) unless a third of a second has gone by without one,
    // so that a kill keeps the still stretch too.
    const bool keyframeDue = pts >= part->nextKeyframePts;
    if (repeat && !keyframeDue && pts - part->lastEncodedPts < stillRefreshFrames_) {
        return;
    }
    AVFrame& picture = pool_.frame(heldSlot_);
    picture.pts = pts;
    picture.pict_type = keyframeDue ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    if (keyframeDue) {
        part->nextKeyframePts = pts + keyframeIntervalFrames_;
    }
    part->lastEncodedPts = pts;
    encodeVideo(*part, &picture);
    ++framesWritten_;
}

void PartWriter::releaseHeld() {
    if (heldSlot_ >= 0) {
        releasePicture(heldSlot_);
        heldSlot_ = -1;
    }
}

void PartWriter::encodeVideo(Part& part, AVFrame* picture) {
    AVCodecContext* encoder = part.setup.encoder.get();
    PartFile& file = *part.setup.file;
    const int sent = avcodec_send_frame(encoder, picture);
    if (sent < 0 && sent != AVERROR_EOF) {
        file.markFailed("Couldn’t encode the video: " + ff::errorText(sent) + ".");
    }
    for (;;) {
        const int received = avcodec_receive_packet(encoder, part.packet.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            break;
        }
        if (received < 0) {
            file.markFailed("Couldn’t encode the video: " + ff::errorText(received) + ".");
            break;
        }
        part.packet->duration = 1;
        file.writeVideo(*part.packet, encoder->time_base);
        av_packet_unref(part.packet.get());
    }
    if (file.failed()) {
        reportFailure(part);
    }
}

void PartWriter::closeVideo(std::int64_t totalFrames) {
    Part* part = parts_.empty() ? nullptr : parts_.back().get();
    if (part == nullptr || part->videoClosed) {
        return;
    }
    encodeVideo(*part, nullptr);
    // The last picture lasts to the part's end, also when the frames after it were
    // unchanged and not encoded.
    part->setup.file->endVideo(part->framesSpanned);
    releaseHeld(); // a later part starts with a picture of its own
    part->videoClosed = true;
    part->audioEnd = samplesAfter(totalFrames);
    // The whole picture goes to the disk now: a paused part may wait long for its
    // last sound (below), and a crash meanwhile must not take it.
    part->setup.file->cutFragment();
}

void PartWriter::pumpAudio(bool finishing) {
    const std::int64_t now = audioPosition(std::chrono::steady_clock::now().time_since_epoch());
    while (!parts_.empty()) {
        Part& part = *parts_.front();
        const bool hasSound = !audio_.empty() && part.firstIndex >= 0;
        const auto toPart = [&part](int track, AVPacket& packet) {
            packet.pts -= part.audioStart;
            packet.dts -= part.audioStart;
            part.setup.file->writeAudio(track, packet);
        };
        if (hasSound) {
            const std::int64_t end =
                part.videoClosed ? part.audioEnd
                                 : samplesAfter(part.setup.framesBefore + part.framesSpanned);
            const std::int64_t available = audio_.availableUntil(now);
            const std::int64_t arrived =
                available == endOfTime
                    ? end
                    : part.audioStart +
                          std::max<std::int64_t>(0, available - part.audioStartPosition);
            const std::int64_t target = std::min(end, arrived);
            const std::int64_t fed = audio_.samplesFed();
            if (target > fed) {
                audio_.feed(part.audioStartPosition + (fed - part.audioStart), target - fed,
                            toPart);
            }
        }
        if (!part.videoClosed || (hasSound && audio_.samplesFed() < part.audioEnd)) {
            return;
        }
        // The audio encoders run on across parts and hold the last few milliseconds of
        // sound: they come out with the next samples fed, which go to the next part with
        // frames (a part without frames is fed nothing), or with the flush when the
        // recording ends. So a part with sound stays open until a later part has frames
        // or the recording ends; retired at a pause, a stop while paused would lose its
        // last 40-60 ms, and so would a part that only a part without frames follows.
        const bool soundFollows =
            std::any_of(parts_.begin() + 1, parts_.end(),
                        [](const auto& later) { return later->firstIndex >= 0; });
        if (hasSound && !soundFollows) {
            if (!finishing) {
                if (!part.soundOnDisk) {
                    part.setup.file->cutFragment(); // all its sound but those last packets
                    part.soundOnDisk = true;
                }
                return;
            }
            audio_.flush(toPart);
        }
        retire(part);
        parts_.pop_front();
    }
}

void PartWriter::retire(Part& part) {
    part.setup.file->writeTrailer();
    if (part.setup.file->failed()) {
        reportFailure(part);
    }
    part.setup.encoder.reset();
    {
        std::lock_guard lock(closeMutex_);
        closing_.push_back(std::move(part.setup.file));
    }
    closeWake_.notify_one();
}

void PartWriter::reportFailure(const Part& part) {
    if (failureReported_) {
        return;
    }
    failureReported_ = true;
    if (handlers_.failed) {
        handlers_.failed(part.setup.file->failure());
    }
}

void PartWriter::finishingLoop() {
    std::unique_lock lock(closeMutex_);
    for (;;) {
        closeWake_.wait(lock, [this] { return !closing_.empty() || closingDone_; });
        if (closing_.empty()) {
            return;
        }
        std::unique_ptr<PartFile> file = std::move(closing_.front());
        closing_.pop_front();
        lock.unlock();
        file->close();
        const std::filesystem::path path = file->path();
        file.reset();
        if (handlers_.partFinished) {
            handlers_.partFinished(path);
        }
        lock.lock();
    }
}

} // namespace lumenvale::record
