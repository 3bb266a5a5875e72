#include "capture/CaptureLoop.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/DesktopGrabber.h"
#include "capture/WindowGrabber.h"

#include <pthread.h>
#include <xcb/randr.h>

namespace lumenvale::x11 {
namespace {

// How often one frame is grabbed again while the windows over it keep moving.
constexpr int maxRetakes = 2;

std::unique_ptr<Grabber> makeGrabber(const XConnection& connection, const CaptureRequest& request) {
    if (const auto* window = std::get_if<CaptureWindow>(&request.target)) {
        return std::make_unique<WindowGrabber>(connection, window->id);
    }
    // Desktop targets follow the displays and, with own windows hidden, the
    // top-level windows: ask for their events before reading them.
    if (connection.extensions().randr) {
        xcb_randr_select_input(connection.get(), connection.root(),
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    }
    if (request.ownWindows == OwnWindows::hidden) {
        const std::uint32_t substructure = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection.get(), connection.root(), XCB_CW_EVENT_MASK,
                                     &substructure);
    }
    return std::make_unique<DesktopGrabber>(connection, request.target, request.ownWindows,
                                            request.keptWindows);
}

void requireImageFormat(const XConnection& connection) {
    const std::uint8_t depth = connection.screen()->root_depth;
    if ((depth != 24 && depth != 32) || connection.bitsPerPixel(depth) != 32 ||
        !connection.littleEndianImages()) {
        throw MediaError("This display’s pixel format isn’t supported for recording.");
    }
}

} // namespace

CaptureLoop::CaptureLoop(const CaptureRequest& request, CaptureCounters& counters)
    : request_(request), counters_(counters), canvas_(request.size), damage_(connection_),
      changed_(request.size.height) {
    requireImageFormat(connection_);
    if (!connection_.extensions().shm) {
        throw MediaError(
            "Lumenvale can’t share memory with this display, so it can’t record the screen.");
    }
    grabber_ = makeGrabber(connection_, request_);
    if (request_.showsPointer) {
        pointer_.emplace(connection_);
    }
    if (request_.showsClicks) {
        clicks_.emplace(connection_);
    }
    connection_.flush();
    if (connection_.broken()) {
        throw MediaError(RecError::displayGone);
    }
}

CaptureLoop::~CaptureLoop() {
    stop();
}

void CaptureLoop::start(VideoSource::FrameHandler onFrame, VideoSource::StoppedHandler onStopped) {
    onFrame_ = std::move(onFrame);
    onStopped_ = std::move(onStopped);
    thread_ = std::thread([this] { run(); });
}

void CaptureLoop::stop() {
    loop_.stop();
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) {
        thread_.join();
    }
}

void CaptureLoop::run() {
    pthread_setname_np(pthread_self(), "capture");
    // The first picture costs more than the others (the server and this process fault
    // in the shared pages, buffers are made): made before the clock starts, it does not
    // make frame 0 late and cost the frames after it.
    if (const std::optional<RecError> ended =
            makeFrame(0, FramePacer::Clock::now(), Pass::rehearsal)) {
        if (onStopped_) {
            onStopped_(std::string(message(*ended)));
        }
        return;
    }
    loop_.run(request_.fps, counters_.dropped,
              [this](std::int64_t index, FramePacer::Clock::time_point due) {
                  const std::optional<RecError> ended = makeFrame(index, due, Pass::recording);
                  if (ended && onStopped_) {
                      onStopped_(std::string(message(*ended)));
                  }
                  return !ended;
              });
}

void CaptureLoop::drainEvents(int& presses) {
    while (Event event{xcb_poll_for_event(connection_.get())}) {
        if (event->response_type == 0) {
            continue; // an error about a window that went away meanwhile
        }
        grabber_->observe(*event);
        damage_.observe(*event);
        if (pointer_) {
            pointer_->observe(*event);
        }
        if (clicks_ && clicks_->isPress(*event)) {
            ++presses;
        }
    }
}

std::optional<RecError> CaptureLoop::makeFrame(std::int64_t index,
                                               FramePacer::Clock::time_point due, Pass pass) {
    const auto now = FramePacer::Clock::now();
    int presses = 0;
    drainEvents(presses);
    if (connection_.broken()) {
        return RecError::displayGone;
    }
    if (const std::optional<RecError> ended = grabber_->update(now)) {
        return ended;
    }

    const PixelSize source = grabber_->sourceSize();
    const FitPlan plan = planFit(source, request_.size);
    const TargetPlace place = grabber_->place();
    watchTarget(place, plan);

    // The pointer and the changed area are asked for together, in one round trip;
    // the picture only when something changed.
    const bool wantsPointer = pointer_ || clicks_;
    xcb_query_pointer_cookie_t pointerCookie{};
    if (wantsPointer) {
        pointerCookie = xcb_query_pointer(connection_.get(), connection_.root());
    }
    if (pointer_) {
        pointer_->request();
    }
    const bool readsDamage = damage_.pending();
    if (readsDamage) {
        damage_.request();
    }
    connection_.flush();
    Reply<xcb_query_pointer_reply_t> position{
        wantsPointer ? xcb_query_pointer_reply(connection_.get(), pointerCookie, nullptr)
                     : nullptr};
    if (pointer_) {
        pointer_->wait();
    }
    if (readsDamage) {
        noteDamage(damage_.wait(), plan);
    }
    if (connection_.broken()) {
        return RecError::displayGone;
    }

    const bool pointerHere = position && position->same_screen != 0;
    if (clicks_ && pointerHere) {
        for (int press = 0; press < presses; ++press) {
            clicks_->add(position->root_x, position->root_y, now);
        }
    }
    const auto toPicture = [&place](PixelRect rect) {
        rect.x -= place.rootX;
        rect.y -= place.rootY;
        return rect;
    };
    std::optional<PixelRect> pointerAt;
    if (pointer_ && pointerHere) {
        pointerAt = toPicture(pointer_->bounds(position->root_x, position->root_y));
    }
    std::vector<PixelRect> rings;
    if (clicks_) {
        for (const PixelRect& ring : clicks_->bounds(now)) {
            rings.push_back(toPicture(ring));
        }
    }
    noteOverlays(pointerAt, rings, plan);
    for (const PixelRect& part : grabber_->unwatchedParts()) {
        markPicture(part, plan);
    }
    if (!changed_.any()) {
        // Nothing changed: the picture handed over last, neither read nor converted.
        if (pass == Pass::recording) {
            ++counters_.unchanged;
        }
        deliverPrevious(index, due, pass, FrameChange::rows);
        return std::nullopt;
    }

    const bool readable = source.width > 0 && source.height > 0;
    if (readable) {
        grabber_->request(plan.grab);
        connection_.flush();
    }
    std::optional<SourceImage> image = readable ? grabber_->wait() : std::nullopt;
    // Look again while the grabber says the picture may hold what it must not; if
    // the desktop does not settle, hand over the previous picture rather than that.
    for (int retakes = 0; image;) {
        drainEvents(presses);
        if (!grabber_->needsRetake()) {
            break;
        }
        if (retakes++ == maxRetakes) {
            image.reset();
            break;
        }
        grabber_->request(plan.grab);
        connection_.flush();
        image = grabber_->wait();
    }
    if (connection_.broken()) {
        return RecError::displayGone;
    }
    if (!image) {
        // Nothing new: the previous picture again (black before the first). What
        // changed meanwhile stays noted for the next picture read.
        if (pass == Pass::recording) {
            ++counters_.repeated;
        }
        deliverPrevious(index, due, pass, FrameChange::whole);
        return std::nullopt;
    }
    if (clicks_) {
        clicks_->draw(*image, now);
    }
    if (pointerAt) {
        pointer_->draw(*image, position->root_x, position->root_y);
    }
    pointerDrawn_ = pointerAt;
    cursorSerial_ = pointer_ ? pointer_->serial() : 0;
    ringsDrawn_ = std::move(rings);
    const FrameChange change = changed_.change();
    const std::vector<RowSpan>& rows = changed_.spans();
    if (plan.mode == FitMode::direct) {
        previous_ = Previous::direct;
        previousDirect_ = *image;
        previousGeneration_ = grabber_->memoryGeneration();
        deliver(*image, index, due, pass, change, rows);
    } else {
        canvas_.paint(*image, plan);
        previous_ = Previous::canvas;
        deliver(canvas_.view(), index, due, pass, change, rows);
    }
    // A rehearsal hands nothing over: the first frame handed over is read whole.
    changed_.clear();
    if (pass == Pass::rehearsal) {
        changed_.markWhole();
    }
    return std::nullopt;
}

void CaptureLoop::watchTarget(const TargetPlace& place, const FitPlan& plan) {
    if (!damage_.available() || place.drawable == XCB_NONE) {
        changed_.markWhole();
        place_.reset();
        return;
    }
    if (place.drawable != damage_.drawable()) {
        damage_.watch(place.drawable);
    }
    if (!place_ || place != *place_ || plan != plan_ || previous_ == Previous::none) {
        changed_.markWhole();
    }
    place_ = place;
    plan_ = plan;
}

void CaptureLoop::noteDamage(const std::optional<std::vector<PixelRect>>& damaged,
                             const FitPlan& plan) {
    if (!damaged || !place_) {
        changed_.markWhole();
        return;
    }
    for (PixelRect rect : *damaged) {
        rect.x -= place_->drawableX;
        rect.y -= place_->drawableY;
        markPicture(rect, plan);
    }
}

void CaptureLoop::noteOverlays(const std::optional<PixelRect>& pointer,
                               std::vector<PixelRect> rings, const FitPlan& plan) {
    // Both places of a moved pointer change: the old one shows what was under it.
    if (pointer != pointerDrawn_ || (pointer_ && pointer_->serial() != cursorSerial_)) {
        for (const std::optional<PixelRect>& drawn : {pointer, pointerDrawn_}) {
            if (drawn) {
                markPicture(*drawn, plan);
            }
        }
    }
    // A ring changes every frame while it lives, and its last place once after.
    rings.insert(rings.end(), ringsDrawn_.begin(), ringsDrawn_.end());
    for (const PixelRect& ring : rings) {
        markPicture(ring, plan);
    }
}

void CaptureLoop::markPicture(const PixelRect& part, const FitPlan& plan) {
    const PixelRect inside = intersection(part, {0, 0, plan.grab.width, plan.grab.height});
    if (inside.empty()) {
        return;
    }
    if (plan.mode == FitMode::scale) {
        changed_.markWhole(); // a scaled row blends its neighbours
        return;
    }
    changed_.mark(inside.y + plan.placement.y, inside.y + inside.height + plan.placement.y);
}

void CaptureLoop::deliverPrevious(std::int64_t index, FramePacer::Clock::time_point time, Pass pass,
                                  FrameChange change) {
    if (previous_ == Previous::direct && previousGeneration_ == grabber_->memoryGeneration()) {
        deliver(previousDirect_, index, time, pass, change, {});
    } else {
        const bool same = previous_ == Previous::canvas;
        deliver(canvas_.view(), index, time, pass, same ? change : FrameChange::whole, {});
    }
}

void CaptureLoop::deliver(const SourceImage& image, std::int64_t index,
                          FramePacer::Clock::time_point time, Pass pass, FrameChange change,
                          std::span<const RowSpan> rows) {
    if (pass == Pass::rehearsal) {
        return;
    }
    VideoFrame frame;
    frame.bgra = image.bgra;
    frame.strideBytes = image.strideBytes;
    frame.size = request_.size;
    frame.time = time.time_since_epoch();
    frame.index = index;
    frame.change = change;
    frame.changedRows = rows;
    ++counters_.delivered;
    if (onFrame_) {
        onFrame_(frame);
    }
}

} // namespace lumenvale::x11
