#pragma once

#include "LumenvaleMedia/Capture.h"
#include "LumenvaleMedia/Displays.h"
#include "LumenvaleMedia/VideoSource.h"
#include "desktop/GlobalKeys.h"
#include "desktop/Keyboard.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>

// The one place that picks the desktop's implementations for this session: X11, or a
// Wayland desktop, whose screens are recorded through the desktop portal (ScreenCast
// and PipeWire); a session without a display server (a headless run) gets the null
// displays, which hold no screens and no windows and cannot be captured. Everything
// else in the application asks through the interfaces made here and never names a
// backend.
//
// Threads: any; what is made belongs to the caller and is used as its interface says.
namespace lumenvale::Desktop {

enum class Session { x11, wayland, none };

// The environment variables that decide the session.
struct SessionEnvironment {
    QString display;        // DISPLAY
    QString waylandDisplay; // WAYLAND_DISPLAY
    QString sessionType;    // XDG_SESSION_TYPE
    // LUMENVALE_CAPTURE: "x11" or "portal" picks that backend whatever the session
    // says (for tests); anything else is ignored.
    QString captureOverride;
};

// Wayland when WAYLAND_DISPLAY is set or XDG_SESSION_TYPE is "wayland" (an X server
// there is XWayland, which cannot see the Wayland windows); else X11 when DISPLAY
// names a display; else none. The override comes first.
Session sessionOf(const SessionEnvironment& environment);

// sessionOf() the process's environment, read afresh on every call.
Session session();

// Picks the Qt platform for the graphical application, before QApplication is made:
// on a Wayland desktop with XWayland (DISPLAY set) the panels are X11 windows
// ("xcb"), which may sit anywhere above the others and take any shape; without
// XWayland, Qt's Wayland platform. A QT_QPA_PLATFORM set by the user wins. Returns
// the sentence to tell the user when neither can show windows here (XWayland is
// missing and so is Qt's Wayland support).
std::optional<QString> chooseGuiPlatform();

// Whether the screen capture can leave this application's own windows out of the
// movie (X11), or records whatever the display shows (the desktop portal on
// Wayland): then the panels around a recording keep out of the recorded area.
enum class OwnWindows { leftOut, recorded };
OwnWindows ownWindowsInCapture();

// Whether clicks anywhere on the desktop can be seen, for the click rings drawn into
// a recording: X11 lets any client watch the pointer's buttons; Wayland shows an
// application only the clicks on its own windows.
enum class GlobalClicks { seen, unseen };
GlobalClicks globalClicks();

// Who picks the window of a window recording: Lumenvale's own picker over the
// desktop's windows (X11), or the desktop in its own dialog when the recording starts
// (Wayland names no windows to applications).
enum class WindowPicking { lumenvalePicker, desktopDialog };
WindowPicking windowPicking();

// The displays and windows of the session's desktop. Nothing is asked of the display
// server before the first call; throws MediaError when its display cannot be reached.
std::unique_ptr<Displays> makeDisplays();

// The capture of `request`'s target. Nothing is touched before start(), which throws
// MediaError with a sentence for the user when the target cannot be captured here.
std::unique_ptr<VideoSource> makeCapture(CaptureRequest request);

// The capture of a window the user picks now in the desktop's dialog
// (WindowPicking::desktopDialog): the movie's pixel size is movieSize(the window's
// size in pixels). Throws MediaError with a sentence for the user when nothing was
// picked or the desktop does not allow it.
std::unique_ptr<VideoSource>
makeChosenWindowCapture(CaptureRequest request,
                        const std::function<PixelSize(PixelSize picture)>& movieSize);

// The session's keyboard: X11 reads its layout through xkbcommon at each call; without
// a display server no key types anything. GUI thread.
std::unique_ptr<Keyboard> makeKeyboard();

// Shortcuts that work whichever application is in front: X11 key grabs on a connection
// of their own (opened here; a display that cannot be reached refuses every grab); on
// Wayland the desktop portal's GlobalShortcuts where the portal offers it, else keys
// that are never pressed and say they are not offered (the user binds the commands
// in the desktop instead); without a display server, keys that are held but never
// pressed. GUI thread.
std::unique_ptr<GlobalKeys> makeGlobalKeys();

} // namespace lumenvale::Desktop
