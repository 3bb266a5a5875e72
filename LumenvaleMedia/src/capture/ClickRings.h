#pragma once

// Mouse clicks drawn as short fading rings: XInput 2 raw button presses (buttons
// 1 to 3) on the root, so every click anywhere is seen without grabbing anything.
// Internal to LumenvaleMedia.

#include "capture/Grabber.h"
#include "capture/XConnection.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

namespace lumenvale::x11 {

class ClickRings {
  public:
    using Clock = std::chrono::steady_clock;

    // How long a ring shows, fading out.
    static constexpr std::chrono::milliseconds lifetime{350};
    // The ring's radius (in pixels) as it appears and as it fades, and its stroke.
    static constexpr double startRadius = 12;
    static constexpr double endRadius = 22;
    static constexpr double strokeWidth = 4;

    // Selects raw button presses on the root (needs XInput 2.2; without it, no rings).
    explicit ClickRings(const XConnection& connection);

    // True when `event` is a press of button 1, 2 or 3.
    bool isPress(const xcb_generic_event_t& event) const;
    // Starts a ring at root position (x, y) at time `now`.
    void add(std::int64_t x, std::int64_t y, Clock::time_point now);
    // Draws the rings still alive at `now` into `image`.
    void draw(const SourceImage& image, Clock::time_point now) const;
    // Where the rings alive at `now` may paint, in root coordinates.
    std::vector<PixelRect> bounds(Clock::time_point now) const;

  private:
    struct Ring {
        std::int64_t x = 0;
        std::int64_t y = 0;
        Clock::time_point start{};
        bool alive = false;
    };

    const XConnection& connection_;
    bool available_ = false;
    // Fixed storage: the oldest ring gives way when clicks come faster than this.
    std::array<Ring, 8> rings_{};
    std::size_t next_ = 0;
};

// Draws one ring: an anti-aliased circle of `radius` in a bright colour with a dark
// outline, at (cx, cy) in image coordinates, with `opacity` from 0 to 1.
void drawRing(const SourceImage& image, double cx, double cy, double radius, double opacity);

} // namespace lumenvale::x11
