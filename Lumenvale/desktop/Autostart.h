#pragma once

#include <QString>

// Starting Lumenvale at login: an XDG autostart entry,
// "<XDG config>/autostart/app.lumenvale.Lumenvale.desktop", which every desktop that
// follows the XDG autostart rules runs when the user logs in. The entry starts this
// very executable (so a build run from its folder starts itself), with no arguments.
//
// Threads: the GUI thread.
namespace lumenvale::Autostart {

// The entry's path.
QString entryPath();

// True when the entry exists and is not switched off by "Hidden=true" or
// "X-GNOME-Autostart-enabled=false" (what desktops write when the user turns it off in
// their own settings).
bool isEnabled();

enum class Login { start, stayQuiet };

// Writes (start) or removes (stayQuiet) the entry. Returns a sentence for the user
// when the file could not be written or removed; empty on success.
QString set(Login login);

} // namespace lumenvale::Autostart
