#include "capture/TopLevels.h"

#include "capture/XProperties.h"
#include "capture/XRes.h"

#include <algorithm>
#include <unistd.h>
#include <xcb/shape.h>

namespace lumenvale::x11 {
namespace {

// How deep below a top-level its client window is looked for: window managers nest
// the client one or two levels inside their frame.
constexpr int clientSearchDepth = 3;

bool holds(const std::vector<std::uint32_t>& list, std::uint32_t value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

TopLevels::TopLevels(const XConnection& connection, std::vector<std::uint32_t> kept)
    : connection_(connection), kept_(std::move(kept)) {
    refresh();
}

TopLevel* TopLevels::find(xcb_window_t id) {
    auto found = std::find_if(windows_.begin(), windows_.end(),
                              [id](const TopLevel& window) { return window.id == id; });
    return found == windows_.end() ? nullptr : &*found;
}

void TopLevels::restack(xcb_window_t id, xcb_window_t aboveSibling) {
    auto moving = std::find_if(windows_.begin(), windows_.end(),
                               [id](const TopLevel& window) { return window.id == id; });
    if (moving == windows_.end()) {
        return;
    }
    TopLevel window = *moving;
    windows_.erase(moving);
    auto below = std::find_if(windows_.begin(), windows_.end(),
                              [aboveSibling](const TopLevel& w) { return w.id == aboveSibling; });
    if (aboveSibling != XCB_NONE && below == windows_.end()) {
        // A sibling we do not know: read the whole stack again.
        windows_.push_back(window);
        stale_ = true;
        return;
    }
    windows_.insert(aboveSibling == XCB_NONE ? windows_.begin() : below + 1, window);
}

void TopLevels::observe(const xcb_generic_event_t& event) {
    const xcb_window_t root = connection_.root();
    switch (event.response_type & 0x7f) {
    case XCB_CREATE_NOTIFY: {
        const auto& created = reinterpret_cast<const xcb_create_notify_event_t&>(event);
        if (created.parent == root) {
            stale_ = true;
        }
        break;
    }
    case XCB_DESTROY_NOTIFY: {
        const auto& destroyed = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
        if (destroyed.event == root) {
            std::erase_if(windows_,
                          [&](const TopLevel& window) { return window.id == destroyed.window; });
            known_.erase(destroyed.window);
        }
        break;
    }
    case XCB_UNMAP_NOTIFY: {
        const auto& unmapped = reinterpret_cast<const xcb_unmap_notify_event_t&>(event);
        if (unmapped.event == root) {
            if (TopLevel* window = find(unmapped.window)) {
                window->viewable = false;
            }
        }
        break;
    }
    case XCB_MAP_NOTIFY: {
        const auto& mapped = reinterpret_cast<const xcb_map_notify_event_t&>(event);
        if (mapped.event != root) {
            break;
        }
        // A frame is mapped once its client sits inside: only now can its owner be told.
        known_.erase(mapped.window);
        if (TopLevel* window = find(mapped.window)) {
            window->viewable = true;
            window->ownership = Ownership::unknown;
            unclassified_ = true;
        } else {
            stale_ = true;
        }
        break;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configured = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
        if (configured.event != root) {
            break;
        }
        if (TopLevel* window = find(configured.window)) {
            const std::int64_t border = configured.border_width;
            window->rect = {configured.x, configured.y, configured.width + 2 * border,
                            configured.height + 2 * border};
            window->borderWidth = configured.border_width;
            restack(configured.window, configured.above_sibling);
        } else {
            stale_ = true;
        }
        break;
    }
    case XCB_REPARENT_NOTIFY: {
        const auto& reparented = reinterpret_cast<const xcb_reparent_notify_event_t&>(event);
        if (reparented.event != root) {
            break;
        }
        if (reparented.parent == root) {
            stale_ = true;
        } else {
            std::erase_if(windows_,
                          [&](const TopLevel& window) { return window.id == reparented.window; });
            known_.erase(reparented.window);
        }
        break;
    }
    case XCB_CIRCULATE_NOTIFY:
    case XCB_GRAVITY_NOTIFY:
        stale_ = true;
        break;
    default:
        break;
    }
}

void TopLevels::refresh() {
    if (stale_) {
        rebuild();
    } else if (unclassified_) {
        std::vector<TopLevel*> pending;
        for (TopLevel& window : windows_) {
            if (window.ownership == Ownership::unknown) {
                pending.push_back(&window);
            }
        }
        classify(std::move(pending));
    }
}

void TopLevels::rebuild() {
    stale_ = false;
    xcb_connection_t* c = connection_.get();
    Reply<xcb_query_tree_reply_t> tree{
        xcb_query_tree_reply(c, xcb_query_tree(c, connection_.root()), nullptr)};
    if (connection_.extensions().xres) {
        ownBases_ = clientBasesOfProcess(c, static_cast<std::uint32_t>(getpid()));
    }
    ownBases_.push_back(xcb_get_setup(c)->resource_id_base);
    windows_.clear();
    if (!tree) {
        return;
    }
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const auto count = static_cast<std::size_t>(xcb_query_tree_children_length(tree.get()));

    std::vector<xcb_get_window_attributes_cookie_t> attributes(count);
    std::vector<xcb_get_geometry_cookie_t> geometries(count);
    std::vector<xcb_shape_query_extents_cookie_t> shapes(count);
    const bool shapeAvailable = connection_.extensions().shape;
    for (std::size_t index = 0; index < count; ++index) {
        attributes[index] = xcb_get_window_attributes(c, children[index]);
        geometries[index] = xcb_get_geometry(c, children[index]);
        if (shapeAvailable) {
            shapes[index] = xcb_shape_query_extents(c, children[index]);
        }
    }
    for (std::size_t index = 0; index < count; ++index) {
        Reply<xcb_get_window_attributes_reply_t> attribute{
            xcb_get_window_attributes_reply(c, attributes[index], nullptr)};
        Reply<xcb_get_geometry_reply_t> geometry{
            xcb_get_geometry_reply(c, geometries[index], nullptr)};
        Reply<xcb_shape_query_extents_reply_t> shape{
            shapeAvailable ? xcb_shape_query_extents_reply(c, shapes[index], nullptr) : nullptr};
        if (!attribute || !geometry) {
            continue; // destroyed meanwhile
        }
        TopLevel window;
        window.id = children[index];
        const std::int64_t border = geometry->border_width;
        window.rect = {geometry->x, geometry->y, geometry->width + 2 * border,
                       geometry->height + 2 * border};
        window.borderWidth = geometry->border_width;
        window.viewable = attribute->map_state == XCB_MAP_STATE_VIEWABLE;
        window.inputOnly = attribute->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
        window.visual = attribute->visual;
        window.shaped = shape && shape->bounding_shaped != 0;
        if (auto found = known_.find(window.id); found != known_.end()) {
            window.ownership = found->second;
        }
        windows_.push_back(window);
    }
    std::vector<TopLevel*> pending;
    for (TopLevel& window : windows_) {
        if (window.ownership == Ownership::unknown) {
            pending.push_back(&window);
        }
    }
    classify(std::move(pending));
}

// Finds each top-level's client (the window carrying WM_STATE, or _NET_WM_PID on an
// unmanaged window) level by level, all top-levels at once so each level is one
// round trip, and decides from the top-level and everything passed on the way.
void TopLevels::classify(std::vector<TopLevel*> pending) {
    unclassified_ = false;
    xcb_connection_t* c = connection_.get();
    const auto pid = static_cast<std::uint32_t>(getpid());
    const std::uint32_t clientMask = connection_.clientMask();

    struct Search {
        TopLevel* top;
        std::vector<xcb_window_t> level;
        bool own = false;
        bool kept = false;
        bool clientFound = false;
    };
    std::vector<Search> searches;
    for (TopLevel* top : pending) {
        searches.push_back({top, {top->id}});
    }
    for (int depth = 0; depth <= clientSearchDepth; ++depth) {
        struct Ask {
            Search* search;
            xcb_window_t window;
            xcb_get_property_cookie_t state, owner;
            xcb_query_tree_cookie_t tree;
        };
        std::vector<Ask> asks;
        for (Search& search : searches) {
            if (search.clientFound) {
                continue;
            }
            for (xcb_window_t window : search.level) {
                asks.push_back({&search, window,
                                requestProperty(c, window, connection_.atom(Atom::wmState), 1),
                                requestProperty(c, window, connection_.atom(Atom::netWmPid), 1),
                                xcb_query_tree(c, window)});
            }
            search.level.clear();
        }
        if (asks.empty()) {
            break;
        }
        for (Ask& ask : asks) {
            Search& search = *ask.search;
            auto state = propertyReply(c, ask.state);
            auto owner = propertyReply(c, ask.owner);
            Reply<xcb_query_tree_reply_t> tree{xcb_query_tree_reply(c, ask.tree, nullptr)};
            if (holds(ownBases_, ask.window & clientMask) || firstWord(owner.get()) == pid) {
                search.own = true;
            }
            if (holds(kept_, ask.window)) {
                search.kept = true;
            }
            if (exists(state.get()) || (depth == 0 && exists(owner.get()))) {
                search.clientFound = true;
            }
            if (!search.clientFound && tree) {
                const xcb_window_t* children = xcb_query_tree_children(tree.get());
                search.level.insert(search.level.end(), children,
                                    children + xcb_query_tree_children_length(tree.get()));
            }
        }
    }
    for (Search& search : searches) {
        const Ownership ownership = !search.own   ? Ownership::other
                                    : search.kept ? Ownership::kept
                                                  : Ownership::own;
        search.top->ownership = ownership;
        known_[search.top->id] = ownership;
    }
}

std::vector<PixelRect> TopLevels::ownParts(const PixelRect& area) const {
    std::vector<PixelRect> parts;
    for (const TopLevel& window : windows_) {
        const PixelRect part = intersection(window.rect, area);
        if (window.viewable && window.ownership == Ownership::own && !part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

} // namespace lumenvale::x11
