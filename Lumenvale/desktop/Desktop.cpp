#include "desktop/Desktop.h"

#include "LumenvaleMedia/CapturePortal.h"
#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/DisplaysWayland.h"
#include "LumenvaleMedia/DisplaysX11.h"
#include "desktop/DisplaysNull.h"
#include "desktop/GlobalKeysNull.h"
#include "desktop/GlobalKeysPortal.h"
#include "desktop/GlobalKeysX11.h"
#include "desktop/KeyboardNull.h"
#include "desktop/KeyboardX11.h"

#include <QDir>
#include <QLibraryInfo>
#include <QtGlobal>

namespace lumenvale::Desktop {

Session sessionOf(const SessionEnvironment& environment) {
    if (environment.captureOverride == QLatin1String("x11")) {
        return Session::x11;
    }
    if (environment.captureOverride == QLatin1String("portal")) {
        return Session::wayland;
    }
    if (!environment.waylandDisplay.isEmpty() ||
        environment.sessionType.compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0) {
        return Session::wayland;
    }
    return environment.display.isEmpty() ? Session::none : Session::x11;
}

Session session() {
    return sessionOf({qEnvironmentVariable("DISPLAY"), qEnvironmentVariable("WAYLAND_DISPLAY"),
                      qEnvironmentVariable("XDG_SESSION_TYPE"),
                      qEnvironmentVariable("LUMENVALE_CAPTURE")});
}

namespace {
// XWayland, when a Wayland session has it: keys typed into its windows.
bool hasXDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}
} // namespace

std::optional<QString> chooseGuiPlatform() {
    if (session() != Session::wayland || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        return std::nullopt;
    }
    if (hasXDisplay()) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        return std::nullopt;
    }
    const QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) +
                         QStringLiteral("/platforms"));
    if (platforms.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty()) {
        return QStringLiteral("Lumenvale can’t show its windows on this Wayland desktop: "
                              "it needs XWayland or Qt’s Wayland support. Install the "
                              "package xwayland or qt6-wayland.");
    }
    qputenv("QT_QPA_PLATFORM", "wayland");
    return std::nullopt;
}

OwnWindows ownWindowsInCapture() {
    return session() == Session::wayland ? OwnWindows::recorded : OwnWindows::leftOut;
}

GlobalClicks globalClicks() {
    return session() == Session::wayland ? GlobalClicks::unseen : GlobalClicks::seen;
}

WindowPicking windowPicking() {
    return session() == Session::wayland ? WindowPicking::desktopDialog
                                         : WindowPicking::lumenvalePicker;
}

std::unique_ptr<Displays> makeDisplays() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<DisplaysX11>();
    case Session::wayland:
        return std::make_unique<DisplaysWayland>();
    case Session::none:
        return std::make_unique<DisplaysNull>();
    }
    return std::make_unique<DisplaysNull>();
}

std::unique_ptr<VideoSource> makeCapture(CaptureRequest request) {
    // Without a display, X11's start() says so.
    if (session() == Session::wayland) {
        return std::make_unique<CapturePortal>(std::move(request));
    }
    return std::make_unique<CaptureX11>(std::move(request));
}

std::unique_ptr<VideoSource>
makeChosenWindowCapture(CaptureRequest request,
                        const std::function<PixelSize(PixelSize picture)>& movieSize) {
    return CapturePortal::choosingWindow(std::move(request), movieSize);
}

std::unique_ptr<Keyboard> makeKeyboard() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<KeyboardX11>();
    case Session::wayland:
        return hasXDisplay() ? std::unique_ptr<Keyboard>(std::make_unique<KeyboardX11>())
                             : std::make_unique<KeyboardNull>();
    case Session::none:
        return std::make_unique<KeyboardNull>();
    }
    return std::make_unique<KeyboardNull>();
}

std::unique_ptr<GlobalKeys> makeGlobalKeys() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<GlobalKeysX11>(std::make_unique<KeyboardX11>());
    case Session::wayland: // X11 grabs would see only XWayland's windows
        if (GlobalKeysPortal::offered()) {
            return std::make_unique<GlobalKeysPortal>(makeKeyboard());
        }
        return std::make_unique<GlobalKeysNull>(GlobalKeys::Support::notOffered);
    case Session::none:
        return std::make_unique<GlobalKeysNull>(GlobalKeys::Support::offered);
    }
    return std::make_unique<GlobalKeysNull>(GlobalKeys::Support::offered);
}

} // namespace lumenvale::Desktop
