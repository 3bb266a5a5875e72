// Permissions against the test desktop, which offers the screen and a microphone but
// no camera: what is held, how often it is checked (quickly only while the permissions
// are shown), and that a change is noticed by the polling alone.

#include "../AppTestSupport.h"
#include "desktop/Permissions.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;
using Kind = Permissions::Kind;

TEST(Permissions, PollingNoticesALostMicrophoneAndTellsOnlyOfChanges) {
    Permissions& permissions = Permissions::shared();
    permissions.refresh();
    ASSERT_TRUE(permissions.granted().contains(Kind::screen));
    ASSERT_TRUE(permissions.granted().contains(Kind::microphone));
    const bool allHeld = permissions.granted().size() == 3;
    EXPECT_EQ(permissions.pollingInterval(), 20'000ms) << "nobody looks: no hurry";
    permissions.setShown(true);
    EXPECT_EQ(permissions.pollingInterval(), allHeld ? 20'000ms : 1'500ms);
    if (allHeld) {
        GTEST_SKIP() << "this machine has a camera: the 20 s polling is too slow to watch";
    }

    QSignalSpy changes(&permissions, &Permissions::grantedChanged);
    permissions.refresh();
    EXPECT_EQ(changes.count(), 0) << "a refresh that found nothing new";

    // The sound server becomes unreachable: the next poll takes the microphone away,
    // and the one after the server is back gives it again.
    {
        ScopedEnvironment environment;
        environment.set("PULSE_SERVER", "unix:/nonexistent/lumenvale-no-server");
        EXPECT_TRUE(QTest::qWaitFor(
            [&] { return !permissions.granted().contains(Kind::microphone); }, 3'000));
        EXPECT_EQ(changes.count(), 1);
        EXPECT_EQ(permissions.pollingInterval(), 1'500ms);
    }
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return permissions.granted().contains(Kind::microphone); }, 3'000));
    EXPECT_EQ(changes.count(), 2);
    permissions.setShown(false);
}

} // namespace
} // namespace lumenvale::testing
