#pragma once

// Reads a screen or a fixed area of the desktop. With own windows hidden, the parts
// of the screen's picture that this process's windows cover are replaced by patches
// composed without them (DesktopCompositor), so the server composes only those
// parts and nothing at all while none overlaps the target. Internal to LumenvaleMedia.

#include "LumenvaleMedia/Capture.h"
#include "capture/DesktopCompositor.h"
#include "capture/Grabber.h"
#include "capture/PixelRect.h"
#include "capture/ShmImage.h"
#include "capture/TopLevels.h"

#include <memory>
#include <string>

namespace lumenvale::x11 {

class DesktopGrabber final : public Grabber {
  public:
    // Finds the target now; throws MediaError "The display is gone." when the screen
    // is not connected or the area lies wholly off the desktop, and when hiding own
    // windows needs what the display lacks. The owner must have selected
    // SubstructureNotify on the root, and RandR screen-change notification.
    DesktopGrabber(const XConnection& connection, const CaptureTarget& target,
                   OwnWindows ownWindows, std::vector<std::uint32_t> keptWindows);

    void observe(const xcb_generic_event_t& event) override;
    std::optional<RecError> update(std::chrono::steady_clock::time_point now) override;
    PixelSize sourceSize() const override { return {region_.width, region_.height}; }
    void request(PixelSize part) override;
    std::optional<SourceImage> wait() override;
    std::int64_t memoryGeneration() const override { return memoryGeneration_; }
    bool needsRetake() override;
    TargetPlace place() const override;
    std::vector<PixelRect> unwatchedParts() override;

  private:
    // More windows than this are patched as one rectangle around them all.
    static constexpr std::size_t maxPatches = 8;

    void ensureMemory(std::size_t bytes);
    std::vector<PixelRect> ownParts() const;
    void padInto(const PixelRect& part);

    const XConnection& connection_;
    std::optional<std::string> screenName_; // a screen target follows this monitor
    PixelRect region_;
    PixelRect root_;
    std::unique_ptr<ShmImage> memory_;
    std::int64_t memoryGeneration_ = 0;
    std::unique_ptr<TopLevels> topLevels_;          // with own windows hidden
    std::unique_ptr<DesktopCompositor> compositor_; // with own windows hidden
    // Where the top-level windows lay and which showed, bottom to top, when
    // unwatchedParts() last looked (with own windows hidden).
    struct Placement {
        xcb_window_t id = XCB_NONE;
        PixelRect rect;
        bool viewable = false;
        friend bool operator==(const Placement&, const Placement&) = default;
    };
    std::vector<Placement> placements_;
    bool displaysStale_ = false;
    std::chrono::steady_clock::time_point nextDisplayPoll_{};

    // The request in flight.
    PixelRect requested_;
    PixelRect grabbed_; // the part of requested_ on the desktop
    xcb_shm_get_image_cookie_t cookie_{};
    std::vector<PixelRect> patches_; // root coordinates
    std::vector<xcb_shm_get_image_cookie_t> patchCookies_;
};

} // namespace lumenvale::x11
