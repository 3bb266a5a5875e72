// The desktop chooser: a Wayland session (recorded through the desktop portal), else the
// session's X server when DISPLAY names one; without either the null desktop, where
// screens and windows are simply absent and nothing is captured.

#include "../AppTestSupport.h"
#include "desktop/Desktop.h"

#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

TEST(Desktop, ASessionWithoutADisplayHasNoScreensAndCannotBeCaptured) {
    ASSERT_FALSE(qgetenv("DISPLAY").isEmpty()) << "the tests run on the X server of session.sh";
    EXPECT_EQ(Desktop::session(), Desktop::Session::x11);
    EXPECT_FALSE(Desktop::makeDisplays()->screens().empty());

    std::unique_ptr<Displays> none;
    {
        ScopedEnvironment environment;
        environment.unset("DISPLAY");
        EXPECT_EQ(Desktop::session(), Desktop::Session::none);
        none = Desktop::makeDisplays();
    }
    EXPECT_FALSE(none->captureAvailable());
    EXPECT_TRUE(none->screens().empty());
    EXPECT_FALSE(none->screenUnderPointer().has_value());
    EXPECT_TRUE(none->windows().empty());
}

TEST(Desktop, WaylandWinsOverXWaylandAndTheOverrideOverEverything) {
    using Desktop::Session;
    const auto of = [](const char* display, const char* wayland, const char* type,
                       const char* override) {
        return Desktop::sessionOf({QString::fromLatin1(display), QString::fromLatin1(wayland),
                                   QString::fromLatin1(type), QString::fromLatin1(override)});
    };
    EXPECT_EQ(of(":0", "", "x11", ""), Session::x11);
    EXPECT_EQ(of(":0", "wayland-0", "", ""), Session::wayland); // XWayland's DISPLAY
    EXPECT_EQ(of("", "", "wayland", ""), Session::wayland);
    EXPECT_EQ(of("", "", "Wayland", ""), Session::wayland);
    EXPECT_EQ(of("", "", "tty", ""), Session::none);
    EXPECT_EQ(of(":0", "wayland-0", "wayland", "x11"), Session::x11);
    EXPECT_EQ(of(":0", "", "x11", "portal"), Session::wayland);
    EXPECT_EQ(of(":0", "", "", "pipewire"), Session::x11); // an unknown override is ignored
}

// On Wayland with XWayland the windows are X11 ones (the panels need override-redirect
// and masks); a platform the user chose stays; X11 sessions are left to Qt.
TEST(Desktop, TheWindowsGoThroughXWaylandUnlessTheUserChoseAPlatform) {
    {
        ScopedEnvironment environment;
        environment.unset("QT_QPA_PLATFORM");
        EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
        EXPECT_TRUE(qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) << "an X11 session";

        environment.set("WAYLAND_DISPLAY", "wayland-test");
        EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
        EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), "xcb");
        EXPECT_EQ(Desktop::ownWindowsInCapture(), Desktop::OwnWindows::recorded);
        EXPECT_EQ(Desktop::globalClicks(), Desktop::GlobalClicks::unseen);

        environment.set("QT_QPA_PLATFORM", "offscreen");
        environment.unset("DISPLAY");
        EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
        EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), "offscreen");
    }
    EXPECT_EQ(Desktop::ownWindowsInCapture(), Desktop::OwnWindows::leftOut);
    EXPECT_EQ(Desktop::globalClicks(), Desktop::GlobalClicks::seen);
}

} // namespace
} // namespace lumenvale::testing
