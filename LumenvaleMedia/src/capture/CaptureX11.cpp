#include "LumenvaleMedia/CaptureX11.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/CaptureLoop.h"

namespace lumenvale {

// Made with the source, so stats() never races with start(): the counters exist
// from the beginning, the loop only once started.
class CaptureX11::Engine {
  public:
    x11::CaptureCounters counters;
    std::unique_ptr<x11::CaptureLoop> loop;
};

CaptureX11::CaptureX11(CaptureRequest request)
    : request_(std::move(request)), engine_(std::make_unique<Engine>()) {}

CaptureX11::~CaptureX11() {
    stop();
}

PixelSize CaptureX11::size() const {
    return request_.size;
}

int CaptureX11::fps() const {
    return request_.fps;
}

void CaptureX11::start(FrameHandler onFrame, StoppedHandler onStopped) {
    if (engine_->loop) {
        throw MediaError("This capture has already been started.");
    }
    if (request_.fps < 1 || request_.size.width < 2 || request_.size.height < 2) {
        throw MediaError("The recording’s frame rate or size is invalid.");
    }
    if (std::holds_alternative<CaptureChosenWindow>(request_.target)) {
        throw MediaError("On this desktop, pick the window to record in Lumenvale’s own picker.");
    }
    auto loop = std::make_unique<x11::CaptureLoop>(request_, engine_->counters);
    loop->start(std::move(onFrame), std::move(onStopped));
    engine_->loop = std::move(loop);
}

void CaptureX11::stop() {
    if (engine_->loop) {
        engine_->loop->stop();
    }
}

CaptureStats CaptureX11::stats() const {
    return engine_->counters.snapshot();
}

} // namespace lumenvale
