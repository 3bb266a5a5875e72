#pragma once

// A live picture of the root window's children (window-manager frames, override-
// redirect windows), bottom to top, with whose they are: this process's own,
// this process's but kept on screen, or anybody else's. Kept current from the
// SubstructureNotify events of the root, so reading it costs no round trip while
// nothing changes. Internal to LumenvaleMedia.

#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <cstdint>
#include <map>
#include <vector>

namespace lumenvale::x11 {

enum class Ownership { unknown, other, own, kept };

struct TopLevel {
    xcb_window_t id = XCB_NONE;
    // The window's outer rectangle, border included, in root coordinates.
    PixelRect rect;
    std::uint16_t borderWidth = 0;
    bool viewable = false;
    bool inputOnly = false;
    bool shaped = false; // has a bounding shape (non-rectangular outline)
    xcb_visualid_t visual = XCB_NONE;
    Ownership ownership = Ownership::unknown;
};

class TopLevels {
  public:
    // `kept`: this process's windows that stay visible (client or frame ids). The
    // owner must have selected SubstructureNotify on the root for the connection.
    TopLevels(const XConnection& connection, std::vector<std::uint32_t> kept);

    // Takes note of one event of the connection (others are ignored).
    void observe(const xcb_generic_event_t& event);
    // Reads again whatever the events made stale; a no-op when nothing changed.
    void refresh();

    // Bottom to top.
    const std::vector<TopLevel>& windows() const { return windows_; }
    // The parts of `area` covered by viewable windows of this process that are not
    // kept, one rectangle per window, bottom to top; empty when none overlaps.
    std::vector<PixelRect> ownParts(const PixelRect& area) const;

  private:
    void rebuild();
    void classify(std::vector<TopLevel*> pending);
    TopLevel* find(xcb_window_t id);
    void restack(xcb_window_t id, xcb_window_t aboveSibling);

    const XConnection& connection_;
    std::vector<std::uint32_t> kept_;
    std::vector<std::uint32_t> ownBases_;
    std::vector<TopLevel> windows_;
    // Ownership found before, by top-level id: a frame's client never changes owner.
    std::map<xcb_window_t, Ownership> known_;
    bool stale_ = true;
    bool unclassified_ = false;
};

} // namespace lumenvale::x11
