#include "capture/XConnection.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/XRes.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/render.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace lumenvale::x11 {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Atom::count)> atomNames{
    "_NET_CLIENT_LIST_STACKING",
    "_NET_FRAME_EXTENTS",
    "_NET_WM_PID",
    "_NET_WM_NAME",
    "UTF8_STRING",
    "WM_STATE",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_WINDOW_TYPE_NORMAL",
    "_NET_WM_WINDOW_TYPE_DIALOG",
    "_NET_WM_STATE",
    "_NET_WM_STATE_HIDDEN",
    "_NET_WM_WINDOW_OPACITY",
    "_GTK_FRAME_EXTENTS",
    "_XROOTPMAP_ID",
};

bool present(xcb_connection_t* connection, xcb_extension_t* extension) {
    const xcb_query_extension_reply_t* data = xcb_get_extension_data(connection, extension);
    return data != nullptr && data->present != 0;
}

bool atLeast(std::uint32_t major, std::uint32_t minor, std::uint32_t wantMajor,
             std::uint32_t wantMinor) {
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

// Why there is no connection to the display that DISPLAY names.
MediaError unreachableDisplay() {
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0') {
        return MediaError("There is no X display to record: DISPLAY is not set.");
    }
    return MediaError(std::string("Lumenvale can’t connect to the X display “") + display + "”.");
}

} // namespace

XConnection::XConnection() {
    int screenNumber = 0;
    connection_.reset(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(connection_.get()) != 0) {
        throw unreachableDisplay();
    }
    setup_ = xcb_get_setup(connection_.get());
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(setup_);
    for (int index = 0; index < screenNumber && screens.rem > 0; ++index) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        throw unreachableDisplay();
    }
    screen_ = screens.data;

    std::array<xcb_intern_atom_cookie_t, atomNames.size()> cookies{};
    for (std::size_t index = 0; index < atomNames.size(); ++index) {
        cookies[index] = xcb_intern_atom(connection_.get(), 0,
                                         static_cast<std::uint16_t>(atomNames[index].size()),
                                         atomNames[index].data());
    }
    for (std::size_t index = 0; index < atomNames.size(); ++index) {
        Reply<xcb_intern_atom_reply_t> reply{
            xcb_intern_atom_reply(connection_.get(), cookies[index], nullptr)};
        atoms_[index] = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }
    queryExtensions();
    if (broken()) {
        throw MediaError(RecError::displayGone);
    }
}

void XConnection::queryExtensions() {
    xcb_connection_t* c = connection_.get();
    // Prefetch every extension's presence in one round trip.
    for (xcb_extension_t* extension :
         {&xcb_shm_id, &xcb_composite_id, &xcb_render_id, &xcb_xfixes_id, &xcb_randr_id,
          &xcb_input_id, &xcb_shape_id, &xresExtension, &xcb_damage_id}) {
        xcb_prefetch_extension_data(c, extension);
    }
    const bool hasShm = present(c, &xcb_shm_id);
    const bool hasComposite = present(c, &xcb_composite_id);
    const bool hasRender = present(c, &xcb_render_id);
    const bool hasXfixes = present(c, &xcb_xfixes_id);
    const bool hasRandr = present(c, &xcb_randr_id);
    const bool hasInput = present(c, &xcb_input_id);
    extensions_.shape = present(c, &xcb_shape_id);
    const bool hasXres = present(c, &xresExtension);
    const bool hasDamage = present(c, &xcb_damage_id);

    // Version queries are required before other requests of XFIXES and XInput 2,
    // and tell which requests the others support. Sent together, answered together.
    xcb_shm_query_version_cookie_t shm{};
    xcb_composite_query_version_cookie_t composite{};
    xcb_render_query_version_cookie_t render{};
    xcb_xfixes_query_version_cookie_t xfixes{};
    xcb_randr_query_version_cookie_t randr{};
    xcb_input_xi_query_version_cookie_t input{};
    xcb_damage_query_version_cookie_t damage{};
    unsigned int xres = 0;
    if (hasShm) {
        shm = xcb_shm_query_version(c);
    }
    if (hasComposite) {
        composite = xcb_composite_query_version(c, 0, 4);
    }
    if (hasRender) {
        render = xcb_render_query_version(c, 0, 11);
    }
    if (hasXfixes) {
        xfixes = xcb_xfixes_query_version(c, 5, 0);
    }
    if (hasRandr) {
        randr = xcb_randr_query_version(c, 1, 6);
    }
    if (hasInput) {
        input = xcb_input_xi_query_version(c, 2, 2);
    }
    if (hasXres) {
        xres = requestXResVersion(c);
    }
    if (hasDamage) {
        damage = xcb_damage_query_version(c, 1, 1);
    }

    if (hasShm) {
        Reply<xcb_shm_query_version_reply_t> reply{xcb_shm_query_version_reply(c, shm, nullptr)};
        extensions_.shm = reply != nullptr;
    }
    if (hasComposite) {
        Reply<xcb_composite_query_version_reply_t> reply{
            xcb_composite_query_version_reply(c, composite, nullptr)};
        extensions_.composite = reply && atLeast(reply->major_version, reply->minor_version, 0, 2);
    }
    if (hasRender) {
        Reply<xcb_render_query_version_reply_t> reply{
            xcb_render_query_version_reply(c, render, nullptr)};
        extensions_.render = reply && atLeast(reply->major_version, reply->minor_version, 0, 11);
    }
    if (hasXfixes) {
        Reply<xcb_xfixes_query_version_reply_t> reply{
            xcb_xfixes_query_version_reply(c, xfixes, nullptr)};
        extensions_.xfixes = reply && reply->major_version >= 4;
        extensions_.xfixesFirstEvent = xcb_get_extension_data(c, &xcb_xfixes_id)->first_event;
    }
    if (hasRandr) {
        Reply<xcb_randr_query_version_reply_t> reply{
            xcb_randr_query_version_reply(c, randr, nullptr)};
        extensions_.randr = reply && atLeast(reply->major_version, reply->minor_version, 1, 5);
        extensions_.randrFirstEvent = xcb_get_extension_data(c, &xcb_randr_id)->first_event;
    }
    if (hasInput) {
        Reply<xcb_input_xi_query_version_reply_t> reply{
            xcb_input_xi_query_version_reply(c, input, nullptr)};
        extensions_.xinput2 = reply && atLeast(reply->major_version, reply->minor_version, 2, 2);
        extensions_.xinputOpcode = xcb_get_extension_data(c, &xcb_input_id)->major_opcode;
    }
    if (hasXres) {
        extensions_.xres = xresVersionAtLeast12(c, xres);
    }
    if (hasDamage) {
        Reply<xcb_damage_query_version_reply_t> reply{
            xcb_damage_query_version_reply(c, damage, nullptr)};
        // Damage is handed over as an XFIXES region, which needs XFIXES 2 or later.
        extensions_.damage = extensions_.xfixes && reply &&
                             atLeast(reply->major_version, reply->minor_version, 1, 1);
        extensions_.damageFirstEvent = xcb_get_extension_data(c, &xcb_damage_id)->first_event;
    }
}

int XConnection::bitsPerPixel(std::uint8_t depth) const {
    for (xcb_format_iterator_t formats = xcb_setup_pixmap_formats_iterator(setup_); formats.rem > 0;
         xcb_format_next(&formats)) {
        if (formats.data->depth == depth) {
            return formats.data->bits_per_pixel;
        }
    }
    return 0;
}

} // namespace lumenvale::x11
