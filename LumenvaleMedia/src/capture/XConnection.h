#pragma once

// One connection to the X server with what every capture piece needs from it:
// the default screen, the atoms Lumenvale reads, and which extensions (at which
// versions) the server offers. Internal to LumenvaleMedia.
//
// Threads: a connection is used by one thread at a time (xcb itself is thread-safe,
// but the helpers here keep no locks around multi-request sequences).

#include "capture/XcbHandles.h"

#include <array>
#include <cstdint>
#include <string>

namespace lumenvale::x11 {

// The atoms interned at connection time, in the order of atomNames in XConnection.cpp.
enum class Atom {
    netClientListStacking,
    netFrameExtents,
    netWmPid,
    netWmName,
    utf8String,
    wmState,
    netWmWindowType,
    netWmWindowTypeNormal,
    netWmWindowTypeDialog,
    netWmState,
    netWmStateHidden,
    netWmWindowOpacity,
    gtkFrameExtents,
    xrootpmapId,
    count
};

// Whether an extension is present and usable at the version Lumenvale needs.
struct Extensions {
    bool shm = false;       // MIT-SHM: shared-memory GetImage
    bool composite = false; // Composite 0.2+: NameWindowPixmap
    bool render = false;    // RENDER 0.11+
    bool xfixes = false;    // XFIXES 4.0+: cursor images and regions
    bool randr = false;     // RandR 1.5+: monitors
    bool xinput2 = false;   // XInput 2.2+: raw button events
    bool shape = false;     // SHAPE: window outlines
    bool xres = false;      // X-Resource 1.2+: which clients belong to which process
    bool damage = false;    // DAMAGE 1.1+ (with XFIXES 2+ regions): what changed on screen
    std::uint8_t xfixesFirstEvent = 0;
    std::uint8_t randrFirstEvent = 0;
    std::uint8_t damageFirstEvent = 0;
    std::uint8_t xinputOpcode = 0;
};

class XConnection {
  public:
    // Connects to the display named by DISPLAY. Throws MediaError saying which display
    // could not be reached, or that DISPLAY names none.
    XConnection();

    XConnection(const XConnection&) = delete;
    XConnection& operator=(const XConnection&) = delete;

    xcb_connection_t* get() const { return connection_.get(); }
    xcb_screen_t* screen() const { return screen_; }
    xcb_window_t root() const { return screen_->root; }
    // The bits of an X id that name its client (the rest number the client's resources).
    std::uint32_t clientMask() const { return ~setup_->resource_id_mask; }
    xcb_atom_t atom(Atom which) const { return atoms_[static_cast<std::size_t>(which)]; }
    const Extensions& extensions() const { return extensions_; }

    // True once the connection has failed for good (the server went away).
    bool broken() const { return xcb_connection_has_error(connection_.get()) != 0; }
    void flush() const { xcb_flush(connection_.get()); }
    std::uint32_t generateID() const { return xcb_generate_id(connection_.get()); }

    // Bits per pixel of images of `depth` in ZPixmap format; 0 when the server has none.
    int bitsPerPixel(std::uint8_t depth) const;
    // True when the server sends pixel bytes least significant first (BGRA in memory).
    bool littleEndianImages() const {
        return setup_->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
    }

  private:
    void queryExtensions();

    ConnectionHandle connection_;
    const xcb_setup_t* setup_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    std::array<xcb_atom_t, static_cast<std::size_t>(Atom::count)> atoms_{};
    Extensions extensions_;
};

} // namespace lumenvale::x11
