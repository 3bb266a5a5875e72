// The shortcut field's rules, on a hotkey center with the session's global keys: what
// a key press while recording does to the action's shortcut, the note and the center.

#include "OtherXClient.h"
#include "desktop/Desktop.h"
#include "hotkeys/HotkeyCenter.h"
#include "hotkeys/ShortcutRecorder.h"
#include "recorder/ScreenRecorder.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

using namespace testing;

constexpr std::int64_t ctrl = Mods::control, alt = Mods::option, shift = Mods::shift,
                       super = Mods::command;
constexpr Combo ctrlAltS{1, Mods(ctrl | alt)}, ctrlAltA{0, Mods(ctrl | alt)};

class ShortcutRecorderTest : public ::testing::Test {
  protected:
    ScreenRecorder recorder;
    HotkeyCenter center{Desktop::makeGlobalKeys(), recorder};
};

TEST_F(ShortcutRecorderTest, AKeyPressWhileRecording) {
    const QString addModifier = QStringLiteral("Add Ctrl, Alt, or Super");
    const struct {
        const char* what;
        std::int64_t keyCode;
        std::int64_t mods;
        bool recordsOn;
        QString note;
        std::optional<Combo> stored; // the screen action's shortcut after the press
    } cases[] = {
        {"bare F5", 96, 0, false, {}, Combo{96, Mods()}},
        {"Shift+F12", 111, shift, false, {}, Combo{111, Mods(shift)}},
        {"bare letter", 15, 0, true, addModifier, ctrlAltS},
        {"Shift+letter", 15, shift, true, addModifier, ctrlAltS},
        {"Shift+Delete", 51, shift, true, addModifier, ctrlAltS},
        {"Super+Escape", 53, super, false, {}, Combo{53, Mods(super)}},
        {"another action's", 0, ctrl | alt, true, QStringLiteral("Used by “Record Area”"),
         ctrlAltS},
        {"its own", 1, ctrl | alt, false, {}, ctrlAltS},
        {"Ctrl+Alt+R", 15, ctrl | alt, false, {}, Combo{15, Mods(ctrl | alt)}},
        {"bare Delete", 51, 0, false, {}, std::nullopt},
        {"bare Forward Delete", 117, 0, false, {}, std::nullopt},
        {"bare Escape", 53, 0, false, {}, ctrlAltS},
        {"Ctrl alone", 0x3B, ctrl, true, {}, ctrlAltS},
    };
    for (const auto& c : cases) {
        center.set(ctrlAltS, RecAction::screen);
        center.set(ctrlAltA, RecAction::area);
        ShortcutRecorder field(RecAction::screen, center);
        field.start();
        ASSERT_TRUE(center.suspended());
        field.record(c.keyCode, Mods(c.mods));
        EXPECT_EQ(field.recording(), c.recordsOn) << c.what;
        EXPECT_EQ(center.suspended(), c.recordsOn) << c.what;
        EXPECT_EQ(field.note(), c.note) << c.what;
        const auto stored = center.combos().find(RecAction::screen);
        EXPECT_EQ(stored == center.combos().end() ? std::nullopt : std::optional(stored->second),
                  c.stored)
            << c.what;
        EXPECT_EQ(center.combos().at(RecAction::area), ctrlAltA) << c.what;
    }
}

TEST_F(ShortcutRecorderTest, WhatTheFieldShows) {
    ShortcutRecorder field(RecAction::window, center);
    QSignalSpy labels(&field, &ShortcutRecorder::labelChanged);
    EXPECT_EQ(field.label(), QStringLiteral("Record Shortcut"));
    EXPECT_FALSE(field.clearable());
    field.toggle();
    EXPECT_EQ(field.label(), QStringLiteral("Type Shortcut…"));
    EXPECT_FALSE(field.clearable());
    // A press as Qt reports it: R is X key code 27; Meta is Super.
    field.recordKeyEvent(27, Qt::ControlModifier | Qt::ShiftModifier | Qt::MetaModifier);
    EXPECT_FALSE(field.recording());
    EXPECT_EQ(field.label(), QStringLiteral("Ctrl+Shift+Super+R"));
    EXPECT_TRUE(field.clearable());
    EXPECT_EQ(field.captionKind(), ShortcutRecorder::CaptionKind::none);
    EXPECT_EQ(labels.count(), 2);

    // Held by another application: in use, unless a note has something to say.
    OtherXClient other;
    ASSERT_TRUE(other.grab(25, controlMask | mod1Mask)); // Ctrl+Alt+W
    center.set(Combo{13, Mods(ctrl | alt)}, RecAction::window);
    EXPECT_EQ(field.label(), QStringLiteral("Ctrl+Alt+W"));
    EXPECT_EQ(field.caption(), QStringLiteral("In use by another app"));
    EXPECT_EQ(field.captionKind(), ShortcutRecorder::CaptionKind::inUse);
    field.start();
    EXPECT_EQ(field.captionKind(), ShortcutRecorder::CaptionKind::none)
        << "the center is suspended";
    field.record(0x0D, Mods());
    EXPECT_EQ(field.caption(), QStringLiteral("Add Ctrl, Alt, or Super"));
    EXPECT_EQ(field.captionKind(), ShortcutRecorder::CaptionKind::note);
    field.stop();
    EXPECT_EQ(field.captionKind(), ShortcutRecorder::CaptionKind::note) << "until the next start";

    field.clear();
    EXPECT_EQ(field.label(), QStringLiteral("Record Shortcut"));
    EXPECT_FALSE(center.combos().count(RecAction::window));
}

TEST_F(ShortcutRecorderTest, OneFieldRecordsAtATime) {
    auto first = std::make_unique<ShortcutRecorder>(RecAction::screen, center);
    ShortcutRecorder second(RecAction::area, center);
    first->start();
    second.start();
    EXPECT_FALSE(first->recording());
    EXPECT_TRUE(second.recording());
    EXPECT_TRUE(center.suspended());
    first->toggle();
    EXPECT_FALSE(second.recording());
    first.reset(); // a field that goes away while recording
    EXPECT_FALSE(center.suspended());
}

} // namespace
} // namespace lumenvale
