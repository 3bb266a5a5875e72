#include "desktop/Screens.h"

#include "LumenvaleKit/ScreenGeometry.h"
#include "desktop/Desktop.h"
#include "desktop/XcbHandles.h"

#include <algorithm>
#include <memory>
#include <string>
#include <unistd.h>

namespace lumenvale::Screens {

namespace {

// The one connection the GUI thread asks through; made on first use and again after
// the display server went away.
std::unique_ptr<Displays>& connection() {
    static std::unique_ptr<Displays> displays;
    return displays;
}

// Runs `ask` against the display server; `fallback` when there is none.
template <typename T, typename Ask> T ask(Ask&& question, T fallback) {
    std::unique_ptr<Displays>& displays = connection();
    try {
        if (!displays) {
            displays = Desktop::makeDisplays();
        }
        return question(*displays);
    } catch (const std::exception&) {
        displays.reset();
        return fallback;
    }
}

// X11 has one scale for the whole desktop (Xft.dpi, QT_SCALE_FACTOR).
double desktopScale(const std::vector<DisplayScreen>& screens) {
    for (const DisplayScreen& screen : screens) {
        if (screen.primary && screen.scale > 0) {
            return screen.scale;
        }
    }
    return screens.empty() || screens.front().scale <= 0 ? 1.0 : screens.front().scale;
}

struct DesktopMetrics {
    double scale = 1;
    double heightPoints = 0;
};

DesktopMetrics desktopOf(const std::vector<DisplayScreen>& screens) {
    DesktopMetrics desktop;
    desktop.scale = desktopScale(screens);
    for (const DisplayScreen& screen : screens) {
        desktop.heightPoints = std::max(desktop.heightPoints, screen.frame.maxY() / desktop.scale);
    }
    return desktop;
}

Rect pixelsToPoints(const Rect& pixels, double scale) {
    return Rect{pixels.x / scale, pixels.y / scale, pixels.width / scale, pixels.height / scale};
}

Screen screenOf(const DisplayScreen& display, const DesktopMetrics& desktop) {
    const Rect frame = ScreenGeometry::appKitRect(pixelsToPoints(display.frame, desktop.scale),
                                                  desktop.heightPoints);
    return Screen{display.id, frame, frame, display.scale > 0 ? display.scale : desktop.scale};
}

double overlapArea(const Rect& a, const Rect& b) {
    const double width = std::min(a.maxX(), b.maxX()) - std::max(a.minX(), b.minX());
    const double height = std::min(a.maxY(), b.maxY()) - std::max(a.minY(), b.minY());
    return width > 0 && height > 0 ? width * height : 0;
}

} // namespace

bool captureAvailable() {
    return !captureProblem();
}

std::optional<std::string> captureProblem() {
    if (Desktop::session() == Desktop::Session::none) {
        return "There is no X display to record: DISPLAY is not set.";
    }
    std::unique_ptr<Displays>& displays = connection();
    try {
        if (!displays) {
            displays = Desktop::makeDisplays();
        }
        if (displays->captureAvailable()) {
            return std::nullopt;
        }
        if (Desktop::session() == Desktop::Session::wayland) {
            return "The Wayland desktop has no screen to record.";
        }
        return "This display doesn’t allow screen capture: it needs the MIT-SHM and Composite "
               "extensions.";
    } catch (const std::exception& error) {
        displays.reset();
        return error.what();
    }
}

std::vector<Screen> all() {
    return ask(
        [](Displays& displays) {
            const std::vector<DisplayScreen> screens = displays.screens();
            const DesktopMetrics desktop = desktopOf(screens);
            std::vector<Screen> result;
            for (const DisplayScreen& screen : screens) {
                result.push_back(screenOf(screen, desktop));
            }
            return result;
        },
        std::vector<Screen>{});
}

std::optional<Screen> withMouse() {
    return ask(
        [](Displays& displays) -> std::optional<Screen> {
            const std::optional<DisplayScreen> under = displays.screenUnderPointer();
            if (!under) {
                return std::nullopt;
            }
            return screenOf(*under, desktopOf(displays.screens()));
        },
        std::optional<Screen>{});
}

std::optional<Screen> containing(const Rect& rect) {
    std::optional<Screen> best;
    double bestOverlap = 0;
    for (const Screen& screen : all()) {
        const double overlap = overlapArea(screen.frame, rect);
        if (overlap > bestOverlap) {
            best = screen;
            bestOverlap = overlap;
        }
    }
    return best;
}

std::optional<Rect> windowFrame(std::uint32_t windowID) {
    return ask(
        [windowID](Displays& displays) -> std::optional<Rect> {
            for (const DesktopWindow& window : displays.windows()) {
                if (window.id == windowID) {
                    const DesktopMetrics desktop = desktopOf(displays.screens());
                    return ScreenGeometry::appKitRect(pixelsToPoints(window.frame, desktop.scale),
                                                      desktop.heightPoints);
                }
            }
            return std::nullopt;
        },
        std::optional<Rect>{});
}

WindowKind windowKind(std::uint32_t windowID) {
    return ask(
        [windowID](Displays& displays) {
            if (!displays.captureAvailable()) {
                return WindowKind::unknown; // the start says what the display lacks
            }
            if (windowID == displays.rootWindow()) {
                return WindowKind::root;
            }
            for (const DesktopWindow& window : displays.windows()) {
                if (window.id == windowID) {
                    return WindowKind::application;
                }
            }
            return displays.windowExists(windowID) ? WindowKind::other : WindowKind::missing;
        },
        WindowKind::unknown);
}

std::vector<PickableWindow> pickableWindows() {
    constexpr double smallestSide = 40; // points
    return ask(
        [](Displays& displays) {
            const DesktopMetrics desktop = desktopOf(displays.screens());
            const auto own = static_cast<std::int64_t>(getpid());
            std::vector<PickableWindow> result;
            for (const DesktopWindow& window : displays.windows()) {
                const Rect frame = ScreenGeometry::appKitRect(
                    pixelsToPoints(window.frame, desktop.scale), desktop.heightPoints);
                if (window.layer != WindowLayer::normal || window.pid == own || window.alpha <= 0 ||
                    window.minimized || frame.width < smallestSide || frame.height < smallestSide) {
                    continue;
                }
                result.push_back(PickableWindow{window.id, frame});
            }
            return result;
        },
        std::vector<PickableWindow>{});
}

bool compositing() {
    // A compositing manager owns the selection _NET_WM_CM_S<screen number>.
    int screenNumber = 0;
    const x11::Connection connection(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0) {
        return false;
    }
    const std::string name = "_NET_WM_CM_S" + std::to_string(screenNumber);
    const x11::Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection.get(),
        xcb_intern_atom(connection.get(), 1, static_cast<std::uint16_t>(name.size()), name.c_str()),
        nullptr));
    if (!atom || atom->atom == XCB_ATOM_NONE) {
        return false; // nobody ever asked for it: no compositor has run
    }
    const x11::Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection.get(), xcb_get_selection_owner(connection.get(), atom->atom), nullptr));
    return owner && owner->owner != XCB_NONE;
}

Rect fromTopLeft(const Rect& topLeft) {
    const DesktopMetrics desktop =
        ask([](Displays& displays) { return desktopOf(displays.screens()); }, DesktopMetrics{});
    return ScreenGeometry::appKitRect(topLeft, desktop.heightPoints);
}

Rect toTopLeft(const Rect& desktopRect) {
    // The flip is its own inverse.
    return fromTopLeft(desktopRect);
}

double scale() {
    return ask([](Displays& displays) { return desktopScale(displays.screens()); }, 1.0);
}

} // namespace lumenvale::Screens
