// The hotkey center on the session's X server: combinations grabbed on the root window,
// pressed with xdotool as in any other application, and run against a real recorder.
// The recorder's null UI cancels an area or window pick at once, so each press of the
// area or window shortcut shows as one selection opened.

#include "OtherXClient.h"
#include "base/Store.h"
#include "desktop/Desktop.h"
#include "hotkeys/HotkeyCenter.h"
#include "recorder/ScreenRecorder.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

using namespace testing;
using Phase = RecorderPhase::Phase;

// Stored key codes and the X key codes of the same keys (evdev + 8).
constexpr Combo ctrlAltA{0, Mods(Mods::control | Mods::option)};
constexpr Combo ctrlAltW{13, Mods(Mods::control | Mods::option)};
constexpr std::uint8_t xA = 38, xW = 25;
constexpr std::uint16_t ctrlAlt = controlMask | mod1Mask;

class HotkeyCenterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        QObject::connect(&recorder, &ScreenRecorder::phaseChanged, &recorder,
                         [this](Phase phase) { selections += phase == Phase::selecting ? 1 : 0; });
    }

    // Waits until `count` selections were opened in all.
    void waitForSelections(int count) {
        ASSERT_TRUE(QTest::qWaitFor([&] { return selections >= count; }, 5000))
            << selections << " of " << count << " selections";
        EXPECT_EQ(selections, count);
    }

    ScreenRecorder recorder;
    HotkeyCenter center{Desktop::makeGlobalKeys(), recorder};
    OtherXClient other;
    int selections = 0;
};

TEST_F(HotkeyCenterTest, AStoredShortcutRunsItsActionWhateverTheLockKeys) {
    Store::defaults().setValue(QString::fromStdString(storageKey(RecAction::area)),
                               QString::fromStdString(encode(ctrlAltA)));
    Store::defaults().setValue(QStringLiteral("hotkey.window"), QStringLiteral("{\"keyCode\": 1"));
    center.load();
    EXPECT_EQ(center.combos(), (HotkeyCenter::Combos{{RecAction::area, ctrlAltA}}));
    EXPECT_TRUE(center.inUse().empty());
    EXPECT_EQ(Store::defaults().value(QStringLiteral("hotkey.window")).toString(),
              QStringLiteral("{\"keyCode\": 1"))
        << "a stored text that does not decode stays";

    int presses = 0;
    for (const QString& lock :
         {QString(), QStringLiteral("Num_Lock"), QStringLiteral("Caps_Lock")}) {
        const QStringList on = lock.isEmpty() ? QStringList() : QStringList{lock};
        pressKeys(on + QStringList{QStringLiteral("ctrl+alt+a")} + on);
        ASSERT_NO_FATAL_FAILURE(waitForSelections(++presses)) << lock.toStdString();
    }
}

TEST_F(HotkeyCenterTest, ACombinationAnotherClientHoldsIsInUseAndNothingOfItIsKept) {
    // The other client holds only the Num Lock variant: ours fails part way.
    ASSERT_TRUE(other.grab(xW, ctrlAlt | numLockMask));
    QSignalSpy inUseChanged(&center, &HotkeyCenter::inUseChanged);
    center.set(ctrlAltW, RecAction::window);
    center.set(ctrlAltA, RecAction::area);
    EXPECT_EQ(center.inUse(), HotkeyCenter::Actions{RecAction::window});
    EXPECT_EQ(inUseChanged.count(), 1);
    EXPECT_FALSE(other.heldElsewhere(xW, ctrlAlt)) << "the variants that were grabbed were kept";
    EXPECT_TRUE(other.heldElsewhere(xA, ctrlAlt));

    other.ungrab(xW, ctrlAlt | numLockMask);
    center.load();
    EXPECT_TRUE(center.inUse().empty());
    EXPECT_TRUE(other.heldElsewhere(xW, ctrlAlt | numLockMask));
}

TEST_F(HotkeyCenterTest, ClearingAShortcutLetsGoOfItsGrabAndItsStoredKey) {
    const QString key = QString::fromStdString(storageKey(RecAction::area));
    center.set(ctrlAltA, RecAction::area);
    EXPECT_TRUE(Store::defaults().contains(key));
    EXPECT_TRUE(other.heldElsewhere(xA, ctrlAlt));
    EXPECT_EQ(center.owner(ctrlAltA), RecAction::area);

    center.set(std::nullopt, RecAction::area);
    EXPECT_FALSE(Store::defaults().contains(key));
    EXPECT_TRUE(center.combos().empty());
    EXPECT_FALSE(center.owner(ctrlAltA).has_value());
    for (const int lock : {0, int(lockMask), int(numLockMask), lockMask | numLockMask}) {
        EXPECT_FALSE(other.heldElsewhere(xA, std::uint16_t(ctrlAlt | lock))) << lock;
    }
}

TEST_F(HotkeyCenterTest, WhileSuspendedNoShortcutIsHeldOrMarked) {
    ASSERT_TRUE(other.grab(xW, ctrlAlt));
    center.set(ctrlAltA, RecAction::area);
    center.set(ctrlAltW, RecAction::window);
    ASSERT_EQ(center.inUse(), HotkeyCenter::Actions{RecAction::window});
    int escapes = 0;
    center.grabEscape([&] { ++escapes; });

    center.setSuspended(true);
    EXPECT_TRUE(center.inUse().empty());
    EXPECT_FALSE(other.heldElsewhere(xA, ctrlAlt));
    // The lent Escape, pressed after it, tells when the press would have arrived.
    pressKeys({QStringLiteral("ctrl+alt+a"), QStringLiteral("Escape")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return escapes == 1; }, 5000));
    EXPECT_EQ(selections, 0);

    center.setSuspended(false);
    EXPECT_EQ(center.inUse(), HotkeyCenter::Actions{RecAction::window});
    pressKeys({QStringLiteral("ctrl+alt+a")});
    ASSERT_NO_FATAL_FAILURE(waitForSelections(1));
}

TEST_F(HotkeyCenterTest, TheLentEscapeRunsTheLatestLoanUntilReleased) {
    center.set(ctrlAltA, RecAction::area);
    int first = 0, second = 0;
    center.grabEscape([&] { ++first; });
    center.grabEscape([&] { ++second; });
    pressKeys({QStringLiteral("Escape")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return second == 1; }, 5000));
    EXPECT_EQ(first, 0);

    center.releaseEscape();
    for (const std::uint32_t unknown : {4u, 99u, 101u}) {
        center.fire(unknown);
    }
    // The area shortcut, pressed after Escape, tells when Escape would have arrived.
    pressKeys({QStringLiteral("Escape"), QStringLiteral("ctrl+alt+a")});
    ASSERT_NO_FATAL_FAILURE(waitForSelections(1));
    EXPECT_EQ(second, 1);
    EXPECT_EQ(first, 0);
}

TEST_F(HotkeyCenterTest, AKeyHeldDownRunsItsActionOnce) {
    center.set(ctrlAltA, RecAction::area);
    ASSERT_TRUE(xdotool({QStringLiteral("keydown"), QStringLiteral("ctrl+alt+a")}));
    QTest::qWait(1200); // past the keyboard's repeat delay
    ASSERT_TRUE(xdotool({QStringLiteral("keyup"), QStringLiteral("ctrl+alt+a")}));
    pressKeys({QStringLiteral("ctrl+alt+a")});
    ASSERT_NO_FATAL_FAILURE(waitForSelections(2));
}

// The desktop's own shortcuts, read where the desktop keeps them: KDE's file, and
// GNOME's schema defaults through gsettings (Super+H minimizes a window there).
TEST_F(HotkeyCenterTest, ADesktopsOwnShortcutMarksTheActionInUseAndIsHeldAllTheSame) {
    const Combo superL{0x25, Mods(Mods::command)}, superH{4, Mods(Mods::command)};
    ScopedEnvironment environment;
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    ASSERT_TRUE(QDir().mkpath(config));
    QFile kde(QDir(config).filePath(QStringLiteral("kglobalshortcutsrc")));
    ASSERT_TRUE(kde.open(QIODevice::WriteOnly));
    kde.write("[ksmserver]\nLock Session=Meta+L\\tScreensaver,Meta+L,Lock Session\n");
    kde.close();

    environment.unset("XDG_CURRENT_DESKTOP");
    center.set(superL, RecAction::screen);
    center.set(superH, RecAction::window);
    EXPECT_TRUE(center.inUse().empty());

    environment.set("XDG_CURRENT_DESKTOP", "KDE");
    center.load();
    EXPECT_EQ(center.inUse(), HotkeyCenter::Actions{RecAction::screen});
    EXPECT_TRUE(other.heldElsewhere(46, mod4Mask));

    environment.set("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    center.load();
    EXPECT_EQ(center.inUse(), HotkeyCenter::Actions{RecAction::window});
    EXPECT_TRUE(other.heldElsewhere(43, mod4Mask));
}

} // namespace
} // namespace lumenvale
