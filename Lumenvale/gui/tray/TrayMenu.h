#pragma once

#include "recorder/RecorderPhase.h"

#include <optional>
#include <span>

// The tray's menu as data: its entries top to bottom and when each can be chosen,
// so TrayApp builds the menu and keeps it current from this one table, and new
// entries are added here. Pure: any thread.
namespace lumenvale::TrayMenu {

enum class Action { recordScreen, stop, quit };

struct Entry {
    std::optional<Action> action; // nothing: a separator
    const char* title = "";       // UTF-8
};

// The entries, top to bottom.
std::span<const Entry> entries();

// Whether `action` can be chosen while the recorder is in `phase`: a recording starts
// only from idle; stop works from the picker to the last part, not while finishing;
// quit always.
bool enabled(Action action, RecorderPhase::Phase phase);

// Whether the tray icon shows a recording in progress.
bool showsRecording(RecorderPhase::Phase phase);

} // namespace lumenvale::TrayMenu
