// The desktop chooser: the session's X server when DISPLAY names one; without it the
// null desktop, where screens and windows are simply absent and nothing is captured.

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

} // namespace
} // namespace lumenvale
