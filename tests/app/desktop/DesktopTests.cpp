// The desktop chooser: a Wayland session (recorded through the desktop portal), else the
// session's X server when DISPLAY names one; without either the null desktop, where
// screens and windows are simply absent and nothing is captured.

#include "desktop/Desktop.h"

#include <QByteArray>
#include <QtGlobal>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(Desktop, ASessionWithoutADisplayHasNoScreensAndCannotBeCaptured) {
    const QByteArray display = qgetenv("DISPLAY");
    ASSERT_FALSE(display.isEmpty()) << "the tests run on the X server of tests/session.sh";
    EXPECT_EQ(Desktop::session(), Desktop::Session::x11);
    EXPECT_FALSE(Desktop::makeDisplays()->screens().empty());

    qunsetenv("DISPLAY");
    EXPECT_EQ(Desktop::session(), Desktop::Session::none);
    const std::unique_ptr<Displays> none = Desktop::makeDisplays();
    qputenv("DISPLAY", display);
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
    const QByteArray display = qgetenv("DISPLAY");
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    qunsetenv("QT_QPA_PLATFORM");
    EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
    EXPECT_TRUE(qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) << "an X11 session";

    qputenv("WAYLAND_DISPLAY", "wayland-test");
    EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
    EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), "xcb");
    EXPECT_EQ(Desktop::ownWindowsInCapture(), Desktop::OwnWindows::recorded);
    EXPECT_EQ(Desktop::globalClicks(), Desktop::GlobalClicks::unseen);

    qputenv("QT_QPA_PLATFORM", "offscreen");
    qunsetenv("DISPLAY");
    EXPECT_EQ(Desktop::chooseGuiPlatform(), std::nullopt);
    EXPECT_EQ(qgetenv("QT_QPA_PLATFORM"), "offscreen");

    qputenv("QT_QPA_PLATFORM", platform);
    qunsetenv("WAYLAND_DISPLAY");
    qputenv("DISPLAY", display);
    EXPECT_EQ(Desktop::ownWindowsInCapture(), Desktop::OwnWindows::leftOut);
    EXPECT_EQ(Desktop::globalClicks(), Desktop::GlobalClicks::seen);
}

} // namespace
} // namespace lumenvale
