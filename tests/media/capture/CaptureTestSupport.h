#pragma once

// Test-only helpers for the capture tests: plain X windows painted one colour
// (made by this process, or by a child process so they belong to someone else),
// a frame catcher that keeps copies of what a capture delivers, and RandR
// monitors made and removed on the fly.

#include "LumenvaleMedia/Capture.h"
#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/Displays.h"
#include "LumenvaleMedia/VideoSource.h"
#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace lumenvale::testing {

using namespace std::chrono_literals;

struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
    std::uint32_t pixel() const {
        return static_cast<std::uint32_t>((red << 16) | (green << 8) | blue);
    }
    friend bool operator==(const Colour&, const Colour&) = default;
};

// The tests' own connection, shared by all of them: ids it makes are never made
// again in this process, so a window manager still busy with a window of an
// earlier test can never act on a window of a later one.
const x11::XConnection& testConnection();

// True when every channel differs by at most `tolerance`.
bool near(const Colour& a, const Colour& b, int tolerance = 8);
std::string describe(const Colour& colour);

// A copy of one delivered frame.
struct Picture {
    PixelSize size;
    std::vector<std::uint8_t> bgra;
    std::int64_t index = 0;
    std::chrono::steady_clock::duration time{};
    // What the frame said changed since the frame before.
    FrameChange change = FrameChange::whole;
    std::vector<RowSpan> changedRows;
    Colour at(std::int64_t x, std::int64_t y) const;
    // True when the frame said row `y` may have changed.
    bool rowChanged(std::int64_t y) const;
};

// How many pixels of the square of `radius` around (x, y) satisfy `wanted`.
int countAround(const Picture& picture, std::int64_t x, std::int64_t y, std::int64_t radius,
                const std::function<bool(const Colour&)>& wanted);

// What the capture tests ask for: `target` at `size` without the pointer, the
// tests' own windows shown unless `ownWindows` says otherwise, and `kept` shown anyway.
CaptureRequest captureRequest(CaptureTarget target, PixelSize size,
                              OwnWindows ownWindows = OwnWindows::shown,
                              std::vector<std::uint32_t> kept = {});

// Keeps the latest frame and the numbers and times of all frames. Declare it before
// the capture whose handlers it gives, so that it outlives the capture thread.
class FrameCatcher {
  public:
    VideoSource::FrameHandler frames();
    VideoSource::StoppedHandler stopped();

    // The first frame delivered after this call that satisfies `wanted`, waiting
    // at most `timeout`; nothing when none did.
    std::optional<Picture> waitFor(const std::function<bool(const Picture&)>& wanted,
                                   std::chrono::milliseconds timeout = 3000ms);
    // The next frame delivered after this call.
    std::optional<Picture> next(std::chrono::milliseconds timeout = 3000ms);
    // The stop reason, waiting at most `timeout`.
    std::optional<std::string> waitStopped(std::chrono::milliseconds timeout);

    std::vector<std::int64_t> indexes() const;
    std::vector<std::chrono::steady_clock::duration> times() const;
    int stopCalls() const;
    std::int64_t framesAfterStop() const;

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Picture latest_;
    std::int64_t count_ = 0;
    std::vector<std::int64_t> indexes_;
    std::vector<std::chrono::steady_clock::duration> times_;
    std::vector<std::string> stopReasons_;
    std::int64_t framesAfterStop_ = 0;
};

// A capture of `request` started at once, its frames caught by this catcher.
class CaughtCapture : public FrameCatcher {
  public:
    explicit CaughtCapture(CaptureRequest request) : capture(std::move(request)) {
        capture.start(frames(), stopped());
    }
    CaptureX11 capture;
};

enum class Management {
    // Override-redirect: the window manager leaves it alone, exactly where put.
    unmanaged,
    // An ordinary window: the window manager frames and places it.
    managed,
};

// A window painted one colour by the server (its background), mapped on creation.
class TestWindow {
  public:
    TestWindow(const x11::XConnection& connection, x11::PixelRect rect, Colour colour,
               Management management, const std::string& title = "Lumenvale test window");
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    xcb_window_t id() const { return id_; }
    void move(std::int64_t x, std::int64_t y);
    void resize(std::int64_t width, std::int64_t height);
    void raise();
    void destroy();

  private:
    const x11::XConnection& connection_;
    xcb_window_t id_ = XCB_NONE;
};

// Declares a shadow of the given widths drawn by the client inside `window`
// (_GTK_FRAME_EXTENTS: left, right, top, bottom), as client-side-decorated windows do.
void setShadow(const x11::XConnection& connection, xcb_window_t window, std::uint32_t left,
               std::uint32_t right, std::uint32_t top, std::uint32_t bottom);

// Paints `rect` (relative to `parent`) of `parent` in `colour` with a child window,
// which goes with its parent.
void paintChild(const x11::XConnection& connection, xcb_window_t parent, x11::PixelRect rect,
                Colour colour);

// Waits until `window` is viewable (and, when managed, framed by the window manager).
void waitViewable(const x11::XConnection& connection, xcb_window_t window, Management management);

// A window made by a child process over its own connection, with that process's
// _NET_WM_PID: to this process it is somebody else's. Unmanaged.
class ForeignWindow {
  public:
    ForeignWindow(x11::PixelRect rect, Colour colour);
    ~ForeignWindow();
    ForeignWindow(const ForeignWindow&) = delete;
    ForeignWindow& operator=(const ForeignWindow&) = delete;

  private:
    pid_t child_ = -1;
    int stopPipe_ = -1;
};

// A user-defined RandR monitor, removed again by the destructor or remove().
class TestMonitor {
  public:
    TestMonitor(const x11::XConnection& connection, const std::string& name, x11::PixelRect rect);
    ~TestMonitor();
    void remove();

  private:
    const x11::XConnection& connection_;
    xcb_atom_t name_ = XCB_NONE;
};

// The window `id` among `windows`, or as DisplaysX11 lists it now.
std::optional<DesktopWindow> findWindow(const std::vector<DesktopWindow>& windows,
                                        std::uint32_t id);
std::optional<DesktopWindow> findWindow(std::uint32_t id);

// Returns once the server has handled every request sent so far on `connection`,
// so that other connections see their effects.
void sync(const x11::XConnection& connection);

void warpPointer(const x11::XConnection& connection, std::int64_t x, std::int64_t y);

} // namespace lumenvale::testing
