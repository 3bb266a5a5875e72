#pragma once

// The capture thread: paces frames, reads the target, draws the pointer and the
// clicks, fits the picture to the movie and hands it over. Internal to
// LumenvaleMedia; CaptureX11 is its public face.

#include "LumenvaleMedia/Capture.h"
#include "LumenvaleMedia/VideoSource.h"
#include "capture/ChangedRows.h"
#include "capture/ClickRings.h"
#include "capture/DamageWatch.h"
#include "capture/FrameFit.h"
#include "capture/FramePacer.h"
#include "capture/Grabber.h"
#include "capture/PointerOverlay.h"
#include "capture/XConnection.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace lumenvale::x11 {

// What a capture counts, read at any time from any thread (see CaptureStats).
struct CaptureCounters {
    std::atomic<std::int64_t> delivered{0};
    std::atomic<std::int64_t> dropped{0};
    std::atomic<std::int64_t> repeated{0};
    std::atomic<std::int64_t> unchanged{0};

    CaptureStats snapshot() const {
        return {delivered.load(), dropped.load(), repeated.load(), unchanged.load()};
    }
};

class CaptureLoop {
  public:
    // Connects and prepares everything for `request` on the calling thread; throws
    // MediaError when the capture cannot run. `counters` must outlive the loop.
    CaptureLoop(const CaptureRequest& request, CaptureCounters& counters);
    // Stops the thread.
    ~CaptureLoop();
    CaptureLoop(const CaptureLoop&) = delete;
    CaptureLoop& operator=(const CaptureLoop&) = delete;

    void start(VideoSource::FrameHandler onFrame, VideoSource::StoppedHandler onStopped);
    // Ends the thread and waits for it (unless called from it). Idempotent.
    void stop();

  private:
    // What was handed over last, to hand over again when a frame cannot be read.
    enum class Previous { none, direct, canvas };
    // A rehearsal makes a frame in full but hands nothing over and counts nothing.
    enum class Pass { rehearsal, recording };

    void run();
    // Makes frame `index`, due at `due` on the pacer's schedule; returns the reason the
    // capture ends, when it does. The frame is handed over with its due time, not the
    // time it was made: frames follow the schedule (a late one is followed by the
    // latest due, the ones between are dropped), so the due time is where its
    // picture sits in the movie. The first frame of a part anchors the part's sound;
    // dated when it was made, a first frame picked up late would move the whole
    // part's sound early by that lateness.
    std::optional<RecError> makeFrame(std::int64_t index, FramePacer::Clock::time_point due,
                                      Pass pass);
    void drainEvents(int& presses);
    // Gathers what changed since the picture handed over last into changed_: the
    // target's damage, a moved or changed pointer (its old and new place), the click
    // rings, and everything when the target moved, resized or was replaced.
    void watchTarget(const TargetPlace& place, const FitPlan& plan);
    void noteDamage(const std::optional<std::vector<PixelRect>>& damaged, const FitPlan& plan);
    void noteOverlays(const std::optional<PixelRect>& pointer, std::vector<PixelRect> rings,
                      const FitPlan& plan);
    // Marks the movie rows that `part` (picture coordinates) covers.
    void markPicture(const PixelRect& part, const FitPlan& plan);
    // The previous picture again: `change` says whether it can be taken as the same.
    void deliverPrevious(std::int64_t index, FramePacer::Clock::time_point time, Pass pass,
                         FrameChange change);
    void deliver(const SourceImage& image, std::int64_t index, FramePacer::Clock::time_point time,
                 Pass pass, FrameChange change, std::span<const RowSpan> rows);

    const CaptureRequest request_;
    CaptureCounters& counters_;
    XConnection connection_;
    std::unique_ptr<Grabber> grabber_;
    std::optional<PointerOverlay> pointer_;
    std::optional<ClickRings> clicks_;
    MovieCanvas canvas_;
    Previous previous_ = Previous::none;
    SourceImage previousDirect_;
    std::int64_t previousGeneration_ = 0;

    // What changed since the picture handed over last, and what that picture was
    // made of: where the target lay, how it was fitted, and where the pointer
    // (cursor `cursorSerial_`) and the click rings were drawn, in picture coordinates.
    DamageWatch damage_;
    ChangedRows changed_;
    std::optional<TargetPlace> place_;
    FitPlan plan_;
    std::optional<PixelRect> pointerDrawn_;
    std::uint32_t cursorSerial_ = 0;
    std::vector<PixelRect> ringsDrawn_;

    VideoSource::FrameHandler onFrame_;
    VideoSource::StoppedHandler onStopped_;
    std::thread thread_;
    PacedLoop loop_;
};

} // namespace lumenvale::x11
