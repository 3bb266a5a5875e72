#pragma once

#include "LumenvaleMedia/Capture.h"
#include "LumenvaleMedia/VideoSource.h"

#include <functional>
#include <memory>

namespace lumenvale {

// Captures a screen, an area or a window of a Wayland desktop as paced BGRA frames,
// through the desktop portal (org.freedesktop.portal.ScreenCast on the session bus)
// and the PipeWire stream it opens.
//
// The portal asks the user which monitor to share (a CaptureScreen's id cannot be
// imposed), or which window (choosingWindow()); the choice is kept with a restore
// token in $XDG_STATE_HOME/lumenvale/screencast-restore-token (a window's:
// screencast-window-restore-token; ~/.local/state when unset), so the next recording
// starts without asking; a token the desktop no longer honours just means a new
// choice. A window resized later is scaled to fit the movie, centred on black. The pointer is drawn
// by the compositor when it can, else by Lumenvale where the compositor describes it
// beside the pictures, else it is left out; clicks are not drawn. An area is cut
// from the monitor's picture (only its part on that monitor, scaled to fit the movie). Frames
// follow the same schedule as the X11 capture: frame n is due at start + n / fps and carries that
// time; each holds the newest picture the compositor sent (a still screen sends none, and is not
// counted as repeated). Before the first picture (a compositor may send none until the screen
// changes) frames are black and counted as repeated.
//
// Ends by itself with "The display is gone." when the stream ends (the monitor was
// unplugged, the user stopped sharing; "The window closed." for a window), or with a sentence
// naming PipeWire when PipeWire itself went away.
//
// Threads: as VideoSource. start() waits for the portal's answers on the calling
// thread (for the user's choice, when the desktop asks) without running its event
// loop. The frame handler runs on the capture thread.
class CapturePortal final : public VideoSource {
  public:
    // Nothing is touched before start(). A CaptureWindow (an X11 id) is refused there.
    explicit CapturePortal(CaptureRequest request);
    // A window the user picks in the desktop's dialog: asks the portal now and waits
    // for the stream, so the movie's size is known: movieSize(the window's picture
    // size in pixels). The request's target and size are ignored. Throws MediaError as
    // start() does, and with a sentence when the desktop shares only whole screens.
    static std::unique_ptr<CapturePortal>
    choosingWindow(CaptureRequest request,
                   const std::function<PixelSize(PixelSize picture)>& movieSize);
    // Stops the capture if it runs, and closes the portal's session.
    ~CapturePortal() override;

    CapturePortal(const CapturePortal&) = delete;
    CapturePortal& operator=(const CapturePortal&) = delete;

    PixelSize size() const override;
    int fps() const override;
    // Asks the portal, connects to PipeWire and waits (a few seconds at most) for
    // the stream to agree on a format, then starts the capture thread. Throws
    // MediaError with a sentence: the desktop has no ScreenCast portal (and what to
    // install), the user or the desktop refused, PipeWire could not be reached, or
    // the monitor's pixel format is not one Lumenvale reads. Call at most once.
    void start(FrameHandler onFrame, StoppedHandler onStopped) override;
    void stop() override;
    CaptureStats stats() const override;

  private:
    class Engine;
    std::unique_ptr<Engine> engine_;
};

} // namespace lumenvale
