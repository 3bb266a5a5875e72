#include "capture/PictureFormats.h"

namespace lumenvale::x11 {

PictureFormats::PictureFormats(const XConnection& connection)
    : formats_(xcb_render_query_pict_formats_reply(
          connection.get(), xcb_render_query_pict_formats(connection.get()), nullptr)) {}

std::optional<PictureFormat> PictureFormats::forVisual(xcb_visualid_t visual) const {
    if (!formats_) {
        return std::nullopt;
    }
    xcb_render_pictformat_t id = XCB_NONE;
    for (auto screens = xcb_render_query_pict_formats_screens_iterator(formats_.get());
         screens.rem > 0 && id == XCB_NONE; xcb_render_pictscreen_next(&screens)) {
        for (auto depths = xcb_render_pictscreen_depths_iterator(screens.data);
             depths.rem > 0 && id == XCB_NONE; xcb_render_pictdepth_next(&depths)) {
            for (auto visuals = xcb_render_pictdepth_visuals_iterator(depths.data); visuals.rem > 0;
                 xcb_render_pictvisual_next(&visuals)) {
                if (visuals.data->visual == visual) {
                    id = visuals.data->format;
                    break;
                }
            }
        }
    }
    if (id == XCB_NONE) {
        return std::nullopt;
    }
    for (auto formats = xcb_render_query_pict_formats_formats_iterator(formats_.get());
         formats.rem > 0; xcb_render_pictforminfo_next(&formats)) {
        if (formats.data->id == id) {
            return PictureFormat{id, formats.data->direct.alpha_mask != 0};
        }
    }
    return PictureFormat{id, false};
}

} // namespace lumenvale::x11
