#pragma once

// Owning wrappers for the C objects of xcb and xkbcommon that the desktop's X11
// services hold. Replies, events and errors are malloc'ed by xcb and freed with free().

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

namespace lumenvale::x11 {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

// A reply, event or error as xcb returns it.
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;
using Event = Reply<xcb_generic_event_t>;
using Error = Reply<xcb_generic_error_t>;

struct ConnectionDeleter {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
// Never null once made: xcb_connect answers a connection in an error state when the
// display cannot be reached (xcb_connection_has_error tells).
using Connection = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

struct XkbDeleter {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
    void operator()(xkb_state* state) const { xkb_state_unref(state); }
};
using XkbContext = std::unique_ptr<xkb_context, XkbDeleter>;
using XkbKeymap = std::unique_ptr<xkb_keymap, XkbDeleter>;
using XkbState = std::unique_ptr<xkb_state, XkbDeleter>;

} // namespace lumenvale::x11
