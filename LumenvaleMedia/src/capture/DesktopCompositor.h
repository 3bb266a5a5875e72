#pragma once

// Paints a part of the desktop as it would look without this process's own
// windows: the desktop's background, then every other viewable top-level window
// from its Composite pixmap, bottom to top, into an offscreen pixmap (RENDER).
// The background is the wallpaper the desktop publishes (_XROOTPMAP_ID); without
// one, the root's own pixels where no window covers them, and black where only
// this process's windows lay over the bare desktop.
// Internal to LumenvaleMedia.

#include "capture/PictureFormats.h"
#include "capture/PixelRect.h"
#include "capture/TopLevels.h"
#include "capture/XcbHandles.h"

#include <vector>

namespace lumenvale::x11 {

class DesktopCompositor {
  public:
    // Has the server keep every top-level window in offscreen storage from now on
    // (automatic redirection: the screen keeps showing them as before). Throws
    // MediaError when the display lacks Composite or RENDER.
    explicit DesktopCompositor(const XConnection& connection);
    // Ends the redirection this made.
    ~DesktopCompositor();
    DesktopCompositor(const DesktopCompositor&) = delete;
    DesktopCompositor& operator=(const DesktopCompositor&) = delete;

    // Queues the painting of `patches` (root coordinates, within `area`) into the
    // pixmap it returns: `area`'s size, its origin at the area's top-left; outside
    // the patches the pixmap keeps whatever it held. Windows whose ownership is
    // Ownership::own are left out. Errors about windows that vanished meanwhile
    // arrive as events and can be ignored.
    xcb_pixmap_t compose(const PixelRect& area, const std::vector<PixelRect>& patches,
                         const std::vector<TopLevel>& windows);

  private:
    void prepare(const PixelRect& area);
    void paintBackground(const PixelRect& area, std::uint32_t patches,
                         const std::vector<TopLevel>& windows);
    void paintWindow(const TopLevel& window, const PixelRect& area, std::uint32_t patches);

    const XConnection& connection_;
    PictureFormats formats_;
    PictureFormat rootFormat_;
    ServerResource target_;        // pixmap
    ServerResource targetPicture_; // picture on it
    std::int64_t targetWidth_ = 0;
    std::int64_t targetHeight_ = 0;
    ServerResource rootPicture_;
    ServerResource wallpaper_; // picture of _XROOTPMAP_ID, when the desktop sets one
};

} // namespace lumenvale::x11
