#pragma once

// Reads one window with its window-manager frame from the frame's Composite
// pixmap: wherever it moves, whatever covers it, without the shadow that a
// client-side-decorated window draws around itself. Internal to LumenvaleMedia.

#include "capture/Grabber.h"
#include "capture/PixelRect.h"
#include "capture/ShmImage.h"
#include "capture/XcbHandles.h"

#include <memory>

namespace lumenvale::x11 {

class WindowGrabber final : public Grabber {
  public:
    // Throws MediaError "The window closed." when `client` does not exist, and a
    // sentence about Composite when the display lacks it.
    WindowGrabber(const XConnection& connection, xcb_window_t client);
    ~WindowGrabber() override;

    void observe(const xcb_generic_event_t& event) override;
    std::optional<RecError> update(std::chrono::steady_clock::time_point now) override;
    PixelSize sourceSize() const override { return {visible_.width, visible_.height}; }
    void request(PixelSize part) override;
    std::optional<SourceImage> wait() override;
    std::int64_t memoryGeneration() const override { return memoryGeneration_; }
    // The frame's damage counts from inside its border; its storage includes it.
    // No drawable while the frame has no storage (minimized): nothing to watch.
    TargetPlace place() const override {
        return {storage_ ? frame_ : xcb_drawable_t{XCB_NONE}, visible_.x - borderWidth_,
                visible_.y - borderWidth_, frameRect_.x + visible_.x, frameRect_.y + visible_.y};
    }

  private:
    // Finds the frame, watches it and reads its geometry; false when the client is gone.
    bool attach();
    void readGeometry();
    void nameStorage();

    const XConnection& connection_;
    xcb_window_t client_;
    xcb_window_t frame_ = XCB_NONE;
    PixelRect frameRect_; // root coordinates, border included
    PixelRect visible_;   // the part of the frame's storage shown, relative to it
    std::int64_t borderWidth_ = 0;
    // Insets of the visible part within the frame: a client-drawn shadow (_GTK_FRAME_EXTENTS).
    std::int64_t insetLeft_ = 0, insetTop_ = 0, insetRight_ = 0, insetBottom_ = 0;
    ServerResource storage_; // the frame's pixmap
    bool storageStale_ = true;
    bool clientGone_ = false;
    bool frameLost_ = false;
    std::unique_ptr<ShmImage> memory_;
    std::int64_t memoryGeneration_ = 0;

    PixelSize requested_;
    bool requestSent_ = false;
    xcb_shm_get_image_cookie_t cookie_{};
};

} // namespace lumenvale::x11
