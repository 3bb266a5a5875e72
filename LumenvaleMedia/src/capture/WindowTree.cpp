#include "capture/WindowTree.h"

namespace lumenvale::x11 {

std::optional<xcb_window_t> topLevelOf(const XConnection& connection, xcb_window_t window) {
    xcb_connection_t* c = connection.get();
    xcb_window_t current = window;
    // Bounded: a tree deeper than this is not a desktop.
    for (int depth = 0; depth < 64; ++depth) {
        Reply<xcb_query_tree_reply_t> tree{
            xcb_query_tree_reply(c, xcb_query_tree(c, current), nullptr)};
        if (!tree) {
            return std::nullopt;
        }
        if (tree->parent == connection.root() || tree->parent == XCB_NONE) {
            return current == connection.root() ? std::nullopt : std::optional(current);
        }
        current = tree->parent;
    }
    return std::nullopt;
}

bool windowExists(const XConnection& connection, xcb_window_t window) {
    xcb_connection_t* c = connection.get();
    Reply<xcb_get_window_attributes_reply_t> attributes{
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr)};
    return attributes != nullptr;
}

} // namespace lumenvale::x11
