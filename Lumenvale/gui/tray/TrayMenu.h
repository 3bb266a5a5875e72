#pragma once

#include "LumenvaleKit/Shortcuts.h"
#include "recorder/RecorderPhase.h"

#include <optional>
#include <string>
#include <vector>

// The application's menu as data: its rows top to bottom, their titles, icons and
// shortcuts, and when each can be chosen. The popup (MenuView.qml) and the tray icon's
// context menu (for desktops that show only menus) are both built from layout(), so
// they always offer the same entries in the same order, enabled and titled the same.
// Pure: any thread.
namespace lumenvale::TrayMenu {

enum class Row {
    stop, // the status header's Stop button, only while recording or paused
    recordScreen,
    recordArea,
    recordWindow,
    editLast,
    openRecording,
    update, // only while an update is pending
    checkForUpdates,
    about,
    settings,
    quit,
};

// What the menu depends on.
struct State {
    RecorderPhase::Phase phase = RecorderPhase::Phase::idle;
    bool hasLast = false;      // the recorder has a last recording to edit
    bool canCheck = false;     // the updater can start a check now
    std::string pending;       // the version of a waiting update (UTF-8); empty: none
    double elapsedSeconds = 0; // the recording's elapsed time, for the header
    // Each record action's shortcut as shown ("Ctrl+Alt+R"); empty: none.
    std::string screenShortcut, areaShortcut, windowShortcut;
};

struct Entry {
    Row row = Row::quit;
    std::string title;    // UTF-8, as shown
    std::string iconName; // a freedesktop icon theme name
    std::string shortcut; // as shown right of the title; empty: none
    bool enabled = true;
};

// One line of the menu: an entry, or (nothing) a divider.
using Line = std::optional<Entry>;

// Whether the status header (elapsed time and Stop) shows: recording or paused.
bool showsHeader(RecorderPhase::Phase phase);
// The header's text: "Recording 0:05" or "Paused 0:05" (Clock's duration text).
std::string headerText(const State& state);
// Whether the tray icon shows a recording in progress: recording or paused.
bool showsRecording(RecorderPhase::Phase phase);

// The menu's lines, top to bottom, for `state`. The header's Stop is the first entry
// while the header shows; the record rows are enabled only while idle.
std::vector<Line> layout(const State& state);

// The action a record row runs; nothing for other rows.
std::optional<RecAction> recordAction(Row row);

// "stop", "recordScreen", ...: the rows' names as the views and tests call them.
std::string name(Row row);
std::optional<Row> rowNamed(const std::string& name);

} // namespace lumenvale::TrayMenu
