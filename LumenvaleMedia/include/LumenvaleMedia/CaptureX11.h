#pragma once

#include "LumenvaleMedia/Capture.h"
#include "LumenvaleMedia/VideoSource.h"

#include <memory>

namespace lumenvale {

// Captures a screen, an area or a window of an X11 display as paced BGRA frames.
//
// Frames are grabbed through MIT-SHM and handed over without a copy when the
// target's pixel size matches the movie; otherwise they are scaled to fit. A window
// is read from its Composite pixmap, so it shows while covered. With
// OwnWindows::hidden, as long as none of this process's windows overlaps the
// target the screen is read as it is; when one does, the frame is composed from
// every other window's pixmap (Composite, RENDER) with this process's windows left
// out. The capture keeps its own connection to the display named by DISPLAY.
//
// Ends by itself (the stopped handler) with "The window closed." when the captured
// window is destroyed, and with "The display is gone." when the captured display is
// disconnected or the connection to the display server is lost.
//
// Threads: as VideoSource. The frame handler runs on the capture thread; the pixels
// it gets may live in memory shared with the X server and are overwritten by the
// next grab.
class CaptureX11 final : public VideoSource {
  public:
    // Nothing is touched before start().
    explicit CaptureX11(CaptureRequest request);
    // Stops the capture if it runs.
    ~CaptureX11() override;

    CaptureX11(const CaptureX11&) = delete;
    CaptureX11& operator=(const CaptureX11&) = delete;

    PixelSize size() const override;
    int fps() const override;
    // Connects, finds the target and prepares the grab on the calling thread, then
    // starts the capture thread; frame 0 is due at once. Throws MediaError:
    // "The display is gone." (the screen is not connected, or the area lies off the
    // desktop), "The window closed." (no such window), or a sentence saying which
    // facility the display lacks (MIT-SHM; Composite and RENDER, needed to capture a
    // window or to hide this process's windows). Call at most once.
    void start(FrameHandler onFrame, StoppedHandler onStopped) override;
    void stop() override;
    CaptureStats stats() const override;

  private:
    class Engine;
    CaptureRequest request_;
    std::unique_ptr<Engine> engine_;
};

} // namespace lumenvale
