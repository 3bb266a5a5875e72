#include "LumenvaleMedia/CaptureX11.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/CaptureLoop.h"

namespace lumenvale {

class CaptureX11::Engine : public x11::CaptureLoop {
    using CaptureLoop::CaptureLoop;
};

CaptureX11::CaptureX11(CaptureRequest request) : request_(std::move(request)) {}

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
    if (engine_) {
        throw MediaError("This capture has already been started.");
    }
    if (request_.fps < 1 || request_.size.width < 2 || request_.size.height < 2) {
        throw MediaError("The recording’s frame rate or size is invalid.");
    }
    auto engine = std::make_unique<Engine>(request_);
    engine->start(std::move(onFrame), std::move(onStopped));
    engine_ = std::move(engine);
}

void CaptureX11::stop() {
    if (engine_) {
        engine_->stop();
    }
}

CaptureStats CaptureX11::stats() const {
    return engine_ ? engine_->stats() : CaptureStats{};
}

} // namespace lumenvale
