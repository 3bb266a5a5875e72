#pragma once

#include <QStringList>
#include <functional>

namespace lumenvale {

class AppDelegate;

// The screenshot generator for the documentation: with APP_SNAPSHOT naming a folder,
// the application renders each of its pages (a window in a given state) to PNG, at the
// scale it runs at and then, in a second run of itself, at twice that, and writes each
// page's layout probes beside it: the window's size and the rectangle of every item
// that has an object name, as JSON.
//
//   APP_SNAPSHOT        the folder the pictures go to (created when missing)
//   APP_SNAPSHOT_PAGES  the pages to render, separated by commas; all when empty
//   APP_STORE           must name a folder in /tmp, so a run never touches the user's
//                       settings ("SNAPSHOT refused: set APP_STORE to a folder in /tmp")
//
// Files: "<page>@1x.png", "<page>@2x.png", "<page>.json". Pages: menu, menu-recording,
// settings-general, settings-shortcuts, settings-video, settings-audio,
// settings-permissions, welcome, about, update-check.
//
// Threads: the GUI thread; the pages render one after another on the event loop.
namespace Snapshot {

// The page names in the order they render.
QStringList pages();

// Starts the run; `finished` gets the exit status (0 all rendered, 1 refused or a page
// failed, with the reason on standard error).
void start(AppDelegate& delegate, std::function<void(int status)> finished);

} // namespace Snapshot
} // namespace lumenvale
