#include "capture/ClickRings.h"

#include <algorithm>
#include <cmath>
#include <xcb/xinput.h>

namespace lumenvale::x11 {
namespace {

// The ring's colour, BGR: an amber that stands out on light and dark screens.
constexpr std::array<double, 3> ringColour{0x20, 0xb8, 0xff};
constexpr double outlineWidth = 1.5;

// Coverage (0 to 1) of a band of half-width `halfWidth` around `radius`, at `distance`
// from the centre, with one pixel of smoothing.
double bandCoverage(double distance, double radius, double halfWidth) {
    return std::clamp(halfWidth + 0.5 - std::abs(distance - radius), 0.0, 1.0);
}

void mix(std::uint8_t* pixel, const std::array<double, 3>& colour, double alpha) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const double value = pixel[channel] * (1 - alpha) + colour[channel] * alpha;
        pixel[channel] = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
    }
}

} // namespace

ClickRings::ClickRings(const XConnection& connection)
    : connection_(connection), available_(connection.extensions().xinput2) {
    if (!available_) {
        return;
    }
    struct {
        xcb_input_event_mask_t header;
        std::uint32_t bits;
    } mask{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
    xcb_input_xi_select_events(connection.get(), connection.root(), 1, &mask.header);
}

bool ClickRings::isPress(const xcb_generic_event_t& event) const {
    if (!available_ || (event.response_type & 0x7f) != XCB_GE_GENERIC) {
        return false;
    }
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    if (generic.extension != connection_.extensions().xinputOpcode ||
        generic.event_type != XCB_INPUT_RAW_BUTTON_PRESS) {
        return false;
    }
    const auto& press = reinterpret_cast<const xcb_input_raw_button_press_event_t&>(event);
    return press.detail >= 1 && press.detail <= 3;
}

void ClickRings::add(std::int64_t x, std::int64_t y, Clock::time_point now) {
    rings_[next_] = {x, y, now, true};
    next_ = (next_ + 1) % rings_.size();
}

void ClickRings::draw(const SourceImage& image, Clock::time_point now) const {
    for (const Ring& ring : rings_) {
        if (!ring.alive || now < ring.start || now - ring.start >= lifetime) {
            continue;
        }
        const double progress = std::chrono::duration<double>(now - ring.start) / lifetime;
        const double radius = startRadius + (endRadius - startRadius) * progress;
        drawRing(image, static_cast<double>(ring.x - image.rootX) + 0.5,
                 static_cast<double>(ring.y - image.rootY) + 0.5, radius, 1 - progress);
    }
}

std::vector<PixelRect> ClickRings::bounds(Clock::time_point now) const {
    // The largest ring, with its outline and smoothing, around the ring's pixel.
    constexpr auto reach =
        static_cast<std::int64_t>(endRadius + strokeWidth / 2 + outlineWidth) + 2;
    std::vector<PixelRect> painted;
    for (const Ring& ring : rings_) {
        if (ring.alive && now >= ring.start && now - ring.start < lifetime) {
            painted.push_back({ring.x - reach, ring.y - reach, 2 * reach + 1, 2 * reach + 1});
        }
    }
    return painted;
}

void drawRing(const SourceImage& image, double cx, double cy, double radius, double opacity) {
    const double halfStroke = ClickRings::strokeWidth / 2;
    const double reach = radius + halfStroke + outlineWidth + 1;
    const auto left = std::max<std::int64_t>(0, static_cast<std::int64_t>(std::floor(cx - reach)));
    const auto top = std::max<std::int64_t>(0, static_cast<std::int64_t>(std::floor(cy - reach)));
    const auto right =
        std::min<std::int64_t>(image.size.width, static_cast<std::int64_t>(std::ceil(cx + reach)));
    const auto bottom =
        std::min<std::int64_t>(image.size.height, static_cast<std::int64_t>(std::ceil(cy + reach)));
    constexpr std::array<double, 3> dark{0, 0, 0};
    for (std::int64_t y = top; y < bottom; ++y) {
        std::uint8_t* line = image.bgra + y * image.strideBytes;
        for (std::int64_t x = left; x < right; ++x) {
            const double distance =
                std::hypot(static_cast<double>(x) + 0.5 - cx, static_cast<double>(y) + 0.5 - cy);
            const double outline = bandCoverage(distance, radius, halfStroke + outlineWidth);
            if (outline <= 0) {
                continue;
            }
            std::uint8_t* pixel = line + x * 4;
            mix(pixel, dark, 0.6 * outline * opacity);
            mix(pixel, ringColour, bandCoverage(distance, radius, halfStroke) * opacity);
        }
    }
}

} // namespace lumenvale::x11
