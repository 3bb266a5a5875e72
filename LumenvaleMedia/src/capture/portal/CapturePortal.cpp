#include "LumenvaleMedia/CapturePortal.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/FrameFit.h"
#include "capture/FramePacer.h"
#include "capture/portal/PipeWireStream.h"
#include "capture/portal/ScreenCastPortal.h"
#include "capture/portal/VisiblePart.h"

#include <algorithm>
#include <atomic>
#include <libyuv/planar_functions.h>
#include <pthread.h>
#include <thread>

namespace lumenvale {

namespace {

using x11::FramePacer;

// How long the stream gets to be linked and agree on a format, and then how long the
// first picture is waited for.
constexpr std::chrono::milliseconds flowLimit{5000};
constexpr std::chrono::milliseconds firstPictureLimit{1000};
// What a chosen window's stream is first asked for when the portal does not say its
// size; the stream's format then gives the real one.
constexpr PixelSize windowSizeGuess{1920, 1080};

} // namespace

// The portal session, the stream and the capture thread, made by start() (the session
// and the stream of a chosen window already by choosingWindow()).
class CapturePortal::Engine {
  public:
    explicit Engine(CaptureRequest wanted) : request(std::move(wanted)), canvas(request.size) {}

    ~Engine() { stop(); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    portal::SourceKind kind() const {
        return std::holds_alternative<CaptureChosenWindow>(request.target)
                   ? portal::SourceKind::window
                   : portal::SourceKind::monitor;
    }

    // Asks the portal and waits until the stream runs, its pictures' size agreed.
    void open() {
        portal = std::make_unique<portal::ScreenCastPortal>(portal::restoreTokenPath(kind()));
        grant = portal->open(kind(), request.showsPointer ? portal::PointerMode::drawn
                                                          : portal::PointerMode::hidden);
        // A chosen window's size is only known now.
        PixelSize wanted = request.size;
        if (kind() == portal::SourceKind::window) {
            wanted = grant.width && grant.height ? PixelSize{*grant.width, *grant.height}
                                                 : windowSizeGuess;
        }
        stream = std::make_unique<portal::PipeWireStream>(std::move(grant.pipeWire), grant.node,
                                                          request.fps, wanted);
        stream->waitUntilFlowing(flowLimit);
    }

    void setMovieSize(PixelSize size) {
        request.size = size;
        canvas = x11::MovieCanvas(size);
    }

    void start(FrameHandler frameHandler, StoppedHandler stoppedHandler) {
        if (!stream) {
            open();
        }
        // Usually frame 0 has a picture; while the screen stays still a compositor
        // may send none, and the frames are black until it does.
        stream->waitForPicture(firstPictureLimit);
        onFrame = std::move(frameHandler);
        onStopped = std::move(stoppedHandler);
        thread = std::thread([this] { run(); });
    }

    void stop() {
        loop.stop();
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) {
            thread.join();
        }
    }

    void run() {
        pthread_setname_np(pthread_self(), "capture");
        loop.run(request.fps, counters.dropped,
                 [this](std::int64_t index, FramePacer::Clock::time_point due) {
                     if (stream->ended()) {
                         if (onStopped) {
                             onStopped(stream->endSentence(kind()));
                         }
                         return false;
                     }
                     makeFrame(index, due);
                     return true;
                 });
    }

    // Paints the newest picture into the canvas and hands it over with its due time
    // (as the X11 capture does, so the sound of a part lines up with its first frame).
    // The compositor sends a picture when the screen changed, with the parts that
    // changed: a frame without a new picture is handed over as unchanged, and one with
    // a picture as changed in the rows its damage touched.
    void makeFrame(std::int64_t index, FramePacer::Clock::time_point due) {
        bool painted = false;
        bool whole = true;
        changedRows.clear();
        stream->withPicture([&](portal::Picture& picture) {
            if (picture.generation == 0) {
                return;
            }
            const bool pointerChanged =
                grant.pointerDescribed && !picture.pointer.sameAs(drawnPointer);
            if (picture.generation == paintedGeneration && !pointerChanged) {
                whole = false; // the same picture again
                return;
            }
            const x11::PixelRect part = portal::visiblePart(request.target, grant, picture.size);
            if (part.empty()) {
                return;
            }
            x11::SourceImage image;
            image.bgra = picture.bgra.data() + (part.y * picture.size.width + part.x) * 4;
            image.strideBytes = picture.size.width * 4;
            image.size = {part.width, part.height};
            if (grant.pointerDescribed && picture.pointer.visible) {
                image = withPointer(image, part, picture.pointer);
            }
            drawnPointer = picture.pointer;
            x11::FitPlan plan = x11::planFit(image.size, request.size);
            if (plan.mode == x11::FitMode::direct) {
                plan.mode = x11::FitMode::pad; // copied: the picture is PipeWire's
            }
            canvas.paint(image, plan);
            whole = picture.wholeDamaged || pointerChanged || plan.mode == x11::FitMode::scale ||
                    paintedGeneration == 0 || part != paintedPart || plan != paintedPlan;
            if (!whole) {
                noteChangedRows(picture.damagedRows, part, plan);
            }
            picture.clearDamage();
            painted = true;
            paintedGeneration = picture.generation;
            paintedPart = part;
            paintedPlan = plan;
        });
        if (!painted) {
            ++counters.repeated;
        }
        const x11::SourceImage view = canvas.view();
        VideoFrame frame;
        frame.bgra = view.bgra;
        frame.strideBytes = view.strideBytes;
        frame.size = request.size;
        frame.time = due.time_since_epoch();
        frame.index = index;
        frame.change = whole ? FrameChange::whole : FrameChange::rows;
        frame.changedRows = changedRows;
        ++counters.delivered;
        if (onFrame) {
            onFrame(frame);
        }
    }

    // The picture's part with the pointer drawn over it, in a copy: the picture
    // itself stays as the compositor sent it, for the frames after a move.
    x11::SourceImage withPointer(const x11::SourceImage& image, const x11::PixelRect& part,
                                 const portal::StreamPointer& pointer) {
        const std::int64_t stride = part.width * 4;
        composed.resize(static_cast<std::size_t>(stride * part.height));
        libyuv::ARGBCopy(image.bgra, static_cast<int>(image.strideBytes), composed.data(),
                         static_cast<int>(stride), static_cast<int>(part.width),
                         static_cast<int>(part.height));
        portal::drawPointer(pointer, composed.data(), stride, image.size, part.x, part.y);
        x11::SourceImage drawn = image;
        drawn.bgra = composed.data();
        drawn.strideBytes = stride;
        return drawn;
    }

    // The movie's rows that the picture's damaged rows land on, sorted and merged.
    void noteChangedRows(const std::vector<RowSpan>& damaged, const x11::PixelRect& part,
                         const x11::FitPlan& plan) {
        const std::int64_t shown = std::min(part.height, plan.grab.height);
        for (const RowSpan& rows : damaged) {
            const std::int64_t top = std::max<std::int64_t>(rows.top - part.y, 0);
            const std::int64_t bottom = std::min(rows.bottom - part.y, shown);
            if (bottom > top) {
                changedRows.push_back({top + plan.placement.y, bottom + plan.placement.y});
            }
        }
        std::sort(changedRows.begin(), changedRows.end(),
                  [](const RowSpan& a, const RowSpan& b) { return a.top < b.top; });
        std::vector<RowSpan> merged;
        for (const RowSpan& rows : changedRows) {
            if (!merged.empty() && rows.top <= merged.back().bottom) {
                merged.back().bottom = std::max(merged.back().bottom, rows.bottom);
            } else {
                merged.push_back(rows);
            }
        }
        changedRows = std::move(merged);
    }

    struct Counters {
        std::atomic<std::int64_t> delivered{0};
        std::atomic<std::int64_t> dropped{0};
        std::atomic<std::int64_t> repeated{0};
    };

    CaptureRequest request;
    Counters counters;
    std::unique_ptr<portal::ScreenCastPortal> portal;
    portal::ScreenCastGrant grant;
    std::unique_ptr<portal::PipeWireStream> stream;
    x11::MovieCanvas canvas;
    // The picture in the canvas: its number, and where it came from and went.
    std::int64_t paintedGeneration = 0;
    x11::PixelRect paintedPart;
    x11::FitPlan paintedPlan;
    std::vector<RowSpan> changedRows;   // of the frame being handed over
    portal::StreamPointer drawnPointer; // where grant.pointerDescribed
    std::vector<std::uint8_t> composed; // the picture's part with the pointer drawn
    FrameHandler onFrame;
    StoppedHandler onStopped;
    std::thread thread;
    x11::PacedLoop loop;
    bool started = false;
};

CapturePortal::CapturePortal(CaptureRequest request)
    : engine_(std::make_unique<Engine>(std::move(request))) {}

CapturePortal::~CapturePortal() {
    stop();
}

std::unique_ptr<CapturePortal>
CapturePortal::choosingWindow(CaptureRequest request,
                              const std::function<PixelSize(PixelSize picture)>& movieSize) {
    request.target = CaptureChosenWindow{};
    auto capture = std::make_unique<CapturePortal>(std::move(request));
    capture->engine_->open();
    capture->engine_->setMovieSize(movieSize(capture->engine_->stream->formatSize()));
    return capture;
}

PixelSize CapturePortal::size() const {
    return engine_->request.size;
}

int CapturePortal::fps() const {
    return engine_->request.fps;
}

void CapturePortal::start(FrameHandler onFrame, StoppedHandler onStopped) {
    if (engine_->started) {
        throw MediaError("This capture has already been started.");
    }
    engine_->started = true;
    const CaptureRequest& request = engine_->request;
    if (request.fps < 1 || request.size.width < 2 || request.size.height < 2) {
        throw MediaError("The recording’s frame rate or size is invalid.");
    }
    if (std::holds_alternative<CaptureWindow>(request.target)) {
        throw MediaError("On Wayland, the window to record is picked in the desktop’s own "
                         "dialog, not named by an X11 id.");
    }
    engine_->start(std::move(onFrame), std::move(onStopped));
}

void CapturePortal::stop() {
    engine_->stop();
}

CaptureStats CapturePortal::stats() const {
    return {engine_->counters.delivered.load(), engine_->counters.dropped.load(),
            engine_->counters.repeated.load()};
}

} // namespace lumenvale
