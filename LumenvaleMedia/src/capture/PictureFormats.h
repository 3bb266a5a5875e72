#pragma once

// RENDER's picture formats, looked up by visual or depth. Internal to LumenvaleMedia.

#include "capture/XConnection.h"

#include <optional>
#include <xcb/render.h>

namespace lumenvale::x11 {

struct PictureFormat {
    xcb_render_pictformat_t id = XCB_NONE;
    bool hasAlpha = false;
};

class PictureFormats {
  public:
    // Reads the server's formats (one round trip). Requires RENDER.
    explicit PictureFormats(const XConnection& connection);

    std::optional<PictureFormat> forVisual(xcb_visualid_t visual) const;

  private:
    Reply<xcb_render_query_pict_formats_reply_t> formats_;
};

} // namespace lumenvale::x11
