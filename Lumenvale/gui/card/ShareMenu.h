#pragma once

#include <QPoint>
#include <QString>
#include <functional>

namespace lumenvale {

// The share menu of a movie file: "Open With…" (a submenu of the applications whose
// desktop entries list the file's type, then, where the desktop portal runs, "Other
// Application…" for its chooser) and "Email…" (the portal's mail composer with the
// file attached, else `xdg-email --attach`). Failures reach the user through `notify`.
//
// Threads: the GUI thread.
namespace ShareMenu {

// Pops the menu up at `at` (Qt's global coordinates); the menu deletes itself when
// it closes. `closed` (optional) runs then.
void popup(const QString& path, QPoint at, std::function<void(const QString&)> notify,
           std::function<void()> closed = {});

} // namespace ShareMenu
} // namespace lumenvale
