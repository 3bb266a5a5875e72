// The camera bubble on the session's display: round, inside the recorded area, showing the
// camera's picture mirrored; moved, resized and hidden by the pointer and its menu, each
// change stored; and a recording that goes on without it when there is no camera.

#include "../AppTestSupport.h"
#include "LumenvaleKit/Bubble.h"
#include "LumenvaleKit/RecordingOptions.h"
#include "base/Store.h"
#include "desktop/Permissions.h"
#include "desktop/Screens.h"
#include "gui/bubble/CameraBubble.h"
#include "recorder/ScreenRecorder.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QMenu>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

// The desktop is the session's one 1920×1080 display; the area is 1000×600 points.
const Rect area{100, 200, 1000, 600};

QImage grab() {
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage();
}

bool near(QColor seen, QColor wanted) {
    return std::abs(seen.red() - wanted.red()) < 40 &&
           std::abs(seen.green() - wanted.green()) < 40 &&
           std::abs(seen.blue() - wanted.blue()) < 40;
}

// Whether the screen shows `colour` around `centre` (top-left coordinates): at least three
// of five points in a row, as the camera's moving bar covers at most two of them.
bool shows(const QImage& screen, QPoint centre, QColor colour) {
    int matches = 0;
    for (int dx = -20; dx <= 20; dx += 10) {
        matches += near(screen.pixelColor(centre + QPoint(dx, 0)), colour) ? 1 : 0;
    }
    return matches >= 3;
}

// The synthetic camera's quadrants as the bubble must show them, mirrored like a selfie:
// the camera's top-right green at the bubble's top-left, and so on.
bool showsMirroredPattern(const QRect& bubble) {
    const QImage screen = grab();
    const QPoint centre = bubble.center();
    const int quarter = bubble.width() / 4;
    return shows(screen, centre + QPoint(-quarter, -quarter), Qt::green) &&
           shows(screen, centre + QPoint(quarter, -quarter), Qt::red) &&
           shows(screen, centre + QPoint(-quarter, quarter), Qt::yellow) &&
           shows(screen, centre + QPoint(quarter, quarter), Qt::blue);
}

// A left-button drag between two points of the screen (top-left coordinates), through
// the X server as a user's mouse gives it.
void drag(QPoint from, QPoint to) {
    const auto at = [](QPoint point) {
        return QStringList{"mousemove", QString::number(point.x()), QString::number(point.y())};
    };
    ASSERT_TRUE(
        xdotool(at(from) + QStringList{"mousedown", "1"} + at(to) + QStringList{"mouseup", "1"}));
}

QRect topLeft(const Rect& desktop) {
    const Rect rect = Screens::toTopLeft(desktop);
    return {static_cast<int>(rect.x), static_cast<int>(rect.y), static_cast<int>(rect.width),
            static_cast<int>(rect.height)};
}

QAction* action(QMenu& menu, const QString& title) {
    for (QAction* candidate : menu.actions()) {
        if (candidate->text() == title) {
            return candidate;
        }
    }
    return nullptr;
}

TEST(CameraBubble, ShowsTheCameraRoundInsideTheAreaAndStoresWhereTheUserPutsIt) {
    ScopedEnvironment environment;
    environment.set("LUMENVALE_SYNTHETIC_CAMERA", "1");
    RecordingOptions options = ScreenRecorder::shared().options();
    options.bubbleDiameter = Bubble::large; // no place stored yet
    options.bubbleFrame.reset();
    ScreenRecorder::shared().setOptions(options);
    QQmlEngine engine;
    CameraBubble bubble(engine);
    QSignalSpy notices(&bubble, &CameraBubble::noticeShown);
    int shown = 0;

    const QImage beneath = grab();
    bubble.show(area, [&] { ++shown; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown == 1; }, 5000));
    EXPECT_EQ(notices.count(), 0);
    ASSERT_TRUE(bubble.windowID().has_value());
    QQuickWindow& window = *bubble.window();
    // Too large for the area: clamped to 0.4 × 600, at the bottom-left corner 32 points in.
    const Rect expected{132, 232, 240, 240};
    EXPECT_EQ(bubble.frame(), expected);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return Screens::windowFrame(*bubble.windowID()) == expected; }, 3000));
    EXPECT_EQ(window.title(), QStringLiteral("Camera"));
    QAccessible::setActive(true);
    QAccessibleInterface* picture =
        QAccessible::queryAccessibleInterface(window.findChild<QQuickItem*>("picture"));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->text(QAccessible::Name), QStringLiteral("Camera"));

    // The camera's picture fills a circle: the corners show what lies beneath.
    EXPECT_TRUE(window.mask().contains(QPoint(120, 120)));
    EXPECT_FALSE(window.mask().contains(QPoint(3, 3)));
    const QRect onScreen = topLeft(expected);
    EXPECT_TRUE(QTest::qWaitFor([&] { return showsMirroredPattern(onScreen); }, 3000));
    const QPoint corner = onScreen.topLeft() + QPoint(3, 3);
    EXPECT_EQ(grab().pixel(corner), beneath.pixel(corner));

    // Dragged from the middle: moved by the pointer's travel (up is +y on the desktop).
    drag({252, 728}, {302, 698});
    const Rect moved{182, 262, 240, 240};
    EXPECT_TRUE(QTest::qWaitFor([&] { return Store::loadOptions().bubbleFrame == moved; }, 3000));
    EXPECT_EQ(bubble.frame(), moved);
    // Dragged far to the left: kept inside the area.
    drag({302, 698}, {0, 698});
    EXPECT_TRUE(QTest::qWaitFor([&] { return bubble.frame() == Rect{100, 262, 240, 240}; }, 3000));
    // Dragged at the edge ring: resized about its centre to twice the pointer's distance.
    drag({336, 698}, {300, 698});
    const Rect resized{140, 302, 160, 160};
    EXPECT_TRUE(QTest::qWaitFor([&] { return Store::loadOptions().bubbleFrame == resized; }, 3000));
    EXPECT_EQ(Store::loadOptions().bubbleDiameter, 160);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return Screens::windowFrame(*bubble.windowID()) == resized; }, 3000));

    // Scrolled down: 15 points a notch, and no smaller than 96 points.
    ASSERT_TRUE(xdotool({"mousemove", "220", "698", "click", "5"}));
    EXPECT_TRUE(QTest::qWaitFor([&] { return bubble.frame().width == 160 - 15; }, 3000));
    ASSERT_TRUE(xdotool({"click", "--repeat", "20", "--delay", "10", "5"}));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return Store::loadOptions().bubbleDiameter == Bubble::minDiameter; }, 3000));
    EXPECT_EQ(bubble.frame().width, Bubble::minDiameter);

    // The menu's sizes; the one in force is checked.
    ASSERT_TRUE(xdotool({"click", "3"}));
    QMenu* menu = nullptr;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return (menu = bubble.menu()) != nullptr && menu->isVisible(); }, 3000));
    EXPECT_EQ(menu->accessibleName(), QStringLiteral("Camera"));
    for (const char* title : {"Small", "Medium", "Large", "Hide Camera"}) {
        ASSERT_NE(action(*menu, QString::fromUtf8(title)), nullptr) << title;
        EXPECT_FALSE(action(*menu, QString::fromUtf8(title))->isChecked()) << title;
    }
    action(*menu, QStringLiteral("Small"))->trigger();
    menu->close();
    EXPECT_EQ(bubble.frame().width, Bubble::small);
    EXPECT_EQ(Store::loadOptions().bubbleDiameter, Bubble::small);
    menu->popup(QPoint(300, 300));
    EXPECT_TRUE(action(*menu, QStringLiteral("Small"))->isChecked());
    EXPECT_FALSE(action(*menu, QStringLiteral("Medium"))->isChecked());

    // "Hide Camera" takes it away for this recording.
    action(*menu, QStringLiteral("Hide Camera"))->trigger();
    EXPECT_FALSE(menu->isVisible());
    EXPECT_FALSE(bubble.windowID().has_value());
    EXPECT_FALSE(window.isVisible());

    // Shown again: where the user left it, and hide() takes it away.
    bubble.show(area, [&] { ++shown; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown == 2; }, 5000));
    EXPECT_EQ(bubble.frame(), Store::loadOptions().bubbleFrame);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return showsMirroredPattern(topLeft(bubble.frame())); }, 3000));
    bubble.hide();
    EXPECT_FALSE(bubble.windowID().has_value());
    EXPECT_EQ(notices.count(), 0);
}

TEST(CameraBubble, WithoutACameraTheRecordingGoesOnAndTheUserIsTold) {
    if (Permissions::check(Permissions::Kind::camera)) {
        GTEST_SKIP() << "This machine has a camera.";
    }
    QQmlEngine engine;
    CameraBubble bubble(engine);
    QSignalSpy notices(&bubble, &CameraBubble::noticeShown);
    bool shown = false;
    bubble.show(area, [&] { shown = true; });
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown; }, 5000));
    ASSERT_EQ(notices.count(), 1);
    EXPECT_EQ(
        notices.at(0).at(0).toString(),
        QStringLiteral("No camera was found, so the recording goes on without the camera bubble."));
    EXPECT_FALSE(bubble.windowID().has_value());
}

} // namespace
} // namespace lumenvale::testing
