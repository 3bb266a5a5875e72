#pragma once

// What the capture loop reads each frame: a screen, an area or a window, kept
// current from the capture connection's events. Internal to LumenvaleMedia.

#include "LumenvaleKit/PixelSize.h"
#include "LumenvaleKit/RecError.h"
#include "capture/PixelRect.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>
#include <xcb/xcb.h>

namespace lumenvale::x11 {

// A picture of the target, in the grabber's shared memory: writable (pointer and
// clicks are drawn into it) until the next request.
struct SourceImage {
    std::uint8_t* bgra = nullptr;
    std::int64_t strideBytes = 0;
    PixelSize size;
    // Root coordinates of the top-left pixel, to place the pointer.
    std::int64_t rootX = 0;
    std::int64_t rootY = 0;
};

// Where a target's picture lies now: in the drawable whose changes the display
// reports (the root for the desktop, the frame for a window), and on the desktop.
struct TargetPlace {
    xcb_drawable_t drawable = XCB_NONE;
    // The picture's top-left pixel in the drawable's coordinates.
    std::int64_t drawableX = 0;
    std::int64_t drawableY = 0;
    // And in root coordinates, to place the pointer.
    std::int64_t rootX = 0;
    std::int64_t rootY = 0;
    friend bool operator==(const TargetPlace&, const TargetPlace&) = default;
};

class Grabber {
  public:
    virtual ~Grabber() = default;

    // Takes note of one event of the capture connection.
    virtual void observe(const xcb_generic_event_t& event) = 0;
    // Brings the target up to date at `now`. Returns the reason the capture ends,
    // when its target is gone.
    virtual std::optional<RecError> update(std::chrono::steady_clock::time_point now) = 0;
    // The target's size in pixels now.
    virtual PixelSize sourceSize() const = 0;
    // Sends the requests for the top-left `part` of the target (at most sourceSize()).
    virtual void request(PixelSize part) = 0;
    // Waits for them: the picture, or nothing when the target could not be read
    // this time (a minimized window).
    virtual std::optional<SourceImage> wait() = 0;
    // After wait() and the events that arrived with it: true when those events show
    // that the picture just read may hold something it must not (a window of this
    // process moved over the target while the picture was taken). Then the frame
    // is read again with request() and wait().
    virtual bool needsRetake() { return false; }
    // Changes whenever the shared memory is replaced (a target grew beyond it):
    // pictures from before are gone.
    virtual std::int64_t memoryGeneration() const = 0;
    // Where the picture lies, after update(); no drawable while the target cannot be
    // read (then every frame tries to read it).
    virtual TargetPlace place() const = 0;
    // After update(): parts of the picture (in its own coordinates) that can change
    // without the drawable reporting it, and so are read again every frame.
    virtual std::vector<PixelRect> unwatchedParts() { return {}; }
};

} // namespace lumenvale::x11
