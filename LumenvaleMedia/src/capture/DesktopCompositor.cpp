#include "capture/DesktopCompositor.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/XProperties.h"

#include <algorithm>
#include <xcb/composite.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

namespace lumenvale::x11 {
namespace {

xcb_void_cookie_t freePixmap(xcb_connection_t* c, std::uint32_t id) {
    return xcb_free_pixmap(c, id);
}
xcb_void_cookie_t freePicture(xcb_connection_t* c, std::uint32_t id) {
    return xcb_render_free_picture(c, id);
}
xcb_void_cookie_t destroyRegion(xcb_connection_t* c, std::uint32_t id) {
    return xcb_xfixes_destroy_region(c, id);
}

const XConnection& requireCompositing(const XConnection& connection) {
    if (!connection.extensions().composite || !connection.extensions().render) {
        throw MediaError("This display can’t leave Lumenvale’s own windows out of the "
                         "recording: it lacks the Composite or RENDER extension.");
    }
    return connection;
}

} // namespace

DesktopCompositor::DesktopCompositor(const XConnection& connection)
    : connection_(connection), formats_(requireCompositing(connection)) {
    auto format = formats_.forVisual(connection.screen()->root_visual);
    if (!format) {
        throw MediaError("This display’s pixel format isn’t supported for recording.");
    }
    rootFormat_ = *format;

    // Redirected from the start, not when first needed: while the server moves
    // windows into offscreen storage, the screen's picture can briefly show a
    // window where it no longer is, and no frame may catch that.
    xcb_connection_t* c = connection.get();
    xcb_composite_redirect_subwindows(c, connection.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);

    const std::uint32_t clipByChildren = XCB_SUBWINDOW_MODE_CLIP_BY_CHILDREN;
    const std::uint32_t picture = connection.generateID();
    xcb_render_create_picture(c, picture, connection.root(), rootFormat_.id,
                              XCB_RENDER_CP_SUBWINDOW_MODE, &clipByChildren);
    rootPicture_ = ServerResource(c, picture, freePicture);

    auto wallpaper = propertyReply(
        c, requestProperty(c, connection.root(), connection.atom(Atom::xrootpmapId), 1));
    if (auto pixmap = firstWord(wallpaper.get()); pixmap && *pixmap != XCB_NONE) {
        const std::uint32_t repeat = XCB_RENDER_REPEAT_NORMAL;
        const std::uint32_t id = connection.generateID();
        xcb_render_create_picture(c, id, *pixmap, rootFormat_.id, XCB_RENDER_CP_REPEAT, &repeat);
        wallpaper_ = ServerResource(c, id, freePicture);
    }
}

DesktopCompositor::~DesktopCompositor() {
    xcb_composite_unredirect_subwindows(connection_.get(), connection_.root(),
                                        XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    connection_.flush();
}

void DesktopCompositor::prepare(const PixelRect& area) {
    xcb_connection_t* c = connection_.get();
    if (!target_ || targetWidth_ != area.width || targetHeight_ != area.height) {
        targetPicture_.reset();
        target_.reset();
        const std::uint32_t pixmap = connection_.generateID();
        xcb_create_pixmap(c, connection_.screen()->root_depth, pixmap, connection_.root(),
                          static_cast<std::uint16_t>(area.width),
                          static_cast<std::uint16_t>(area.height));
        target_ = ServerResource(c, pixmap, freePixmap);
        const std::uint32_t picture = connection_.generateID();
        xcb_render_create_picture(c, picture, pixmap, rootFormat_.id, 0, nullptr);
        targetPicture_ = ServerResource(c, picture, freePicture);
        targetWidth_ = area.width;
        targetHeight_ = area.height;
    }
}

namespace {

xcb_rectangle_t relative(const PixelRect& rect, const PixelRect& area) {
    return {static_cast<std::int16_t>(rect.x - area.x), static_cast<std::int16_t>(rect.y - area.y),
            static_cast<std::uint16_t>(rect.width), static_cast<std::uint16_t>(rect.height)};
}

} // namespace

// `patches` is the region (in area coordinates) being painted; it is the target's
// clip on entry and on return.
void DesktopCompositor::paintBackground(const PixelRect& area, std::uint32_t patches,
                                        const std::vector<TopLevel>& windows) {
    xcb_connection_t* c = connection_.get();
    const xcb_render_color_t black{0, 0, 0, 0xffff};
    const xcb_rectangle_t whole{0, 0, static_cast<std::uint16_t>(area.width),
                                static_cast<std::uint16_t>(area.height)};
    xcb_render_fill_rectangles(c, XCB_RENDER_PICT_OP_SRC, targetPicture_.id(), black, 1, &whole);
    if (wallpaper_) {
        xcb_render_composite(c, XCB_RENDER_PICT_OP_SRC, wallpaper_.id(), XCB_NONE,
                             targetPicture_.id(), static_cast<std::int16_t>(area.x),
                             static_cast<std::int16_t>(area.y), 0, 0, 0, 0, whole.width,
                             whole.height);
        return;
    }
    // Without a published wallpaper, the root's own pixels serve, but only where no
    // window lies: redirected windows do not clip their parent, so elsewhere the
    // root holds their pictures, this process's windows included. There it stays
    // black unless another window is painted over it.
    std::vector<xcb_rectangle_t> covered;
    for (const TopLevel& window : windows) {
        const PixelRect part = intersection(window.rect, area);
        if (window.viewable && !window.inputOnly && !part.empty()) {
            covered.push_back(relative(part, area));
        }
    }
    const std::uint32_t coveredID = connection_.generateID();
    xcb_xfixes_create_region(c, coveredID, static_cast<std::uint32_t>(covered.size()),
                             covered.data());
    ServerResource coveredRegion(c, coveredID, destroyRegion);
    const std::uint32_t openID = connection_.generateID();
    xcb_xfixes_create_region(c, openID, 0, nullptr);
    ServerResource open(c, openID, destroyRegion);
    xcb_xfixes_subtract_region(c, patches, coveredID, openID);
    xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), openID, 0, 0);
    xcb_render_composite(c, XCB_RENDER_PICT_OP_SRC, rootPicture_.id(), XCB_NONE,
                         targetPicture_.id(), static_cast<std::int16_t>(area.x),
                         static_cast<std::int16_t>(area.y), 0, 0, 0, 0, whole.width, whole.height);
    xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), patches, 0, 0);
}

void DesktopCompositor::paintWindow(const TopLevel& window, const PixelRect& area,
                                    std::uint32_t patches) {
    xcb_connection_t* c = connection_.get();
    auto format = formats_.forVisual(window.visual);
    if (!format) {
        return;
    }
    const std::uint32_t pixmapID = connection_.generateID();
    xcb_composite_name_window_pixmap(c, window.id, pixmapID);
    ServerResource pixmap(c, pixmapID, freePixmap);
    const std::uint32_t pictureID = connection_.generateID();
    xcb_render_create_picture(c, pictureID, pixmapID, format->id, 0, nullptr);
    ServerResource picture(c, pictureID, freePicture);

    const auto left = static_cast<std::int16_t>(window.rect.x - area.x);
    const auto top = static_cast<std::int16_t>(window.rect.y - area.y);
    ServerResource outline;
    if (window.shaped) {
        // Outside its bounding shape the window's storage holds nothing meaningful:
        // paint only where the shape and the patches meet.
        const std::uint32_t regionID = connection_.generateID();
        xcb_xfixes_create_region_from_window(c, regionID, window.id, XCB_SHAPE_SK_BOUNDING);
        outline = ServerResource(c, regionID, destroyRegion);
        xcb_xfixes_translate_region(c, regionID,
                                    static_cast<std::int16_t>(left + window.borderWidth),
                                    static_cast<std::int16_t>(top + window.borderWidth));
        xcb_xfixes_intersect_region(c, regionID, patches, regionID);
        xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), regionID, 0, 0);
    }
    xcb_render_composite(c, format->hasAlpha ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC,
                         pictureID, XCB_NONE, targetPicture_.id(), 0, 0, 0, 0, left, top,
                         static_cast<std::uint16_t>(window.rect.width),
                         static_cast<std::uint16_t>(window.rect.height));
    if (window.shaped) {
        xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), patches, 0, 0);
    }
}

xcb_pixmap_t DesktopCompositor::compose(const PixelRect& area,
                                        const std::vector<PixelRect>& patches,
                                        const std::vector<TopLevel>& windows) {
    xcb_connection_t* c = connection_.get();
    prepare(area);
    std::vector<xcb_rectangle_t> rectangles;
    for (const PixelRect& patch : patches) {
        rectangles.push_back(relative(patch, area));
    }
    const std::uint32_t regionID = connection_.generateID();
    xcb_xfixes_create_region(c, regionID, static_cast<std::uint32_t>(rectangles.size()),
                             rectangles.data());
    ServerResource region(c, regionID, destroyRegion);
    xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), regionID, 0, 0);
    paintBackground(area, regionID, windows);
    for (const TopLevel& window : windows) {
        const bool touches =
            std::any_of(patches.begin(), patches.end(),
                        [&](const PixelRect& patch) { return intersects(window.rect, patch); });
        if (window.viewable && !window.inputOnly && window.ownership != Ownership::own && touches) {
            paintWindow(window, area, regionID);
        }
    }
    xcb_xfixes_set_picture_clip_region(c, targetPicture_.id(), XCB_NONE, 0, 0);
    return target_.id();
}

} // namespace lumenvale::x11
