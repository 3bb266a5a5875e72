#include "gui/windows/AppShell.h"

#include "base/Store.h"
#include "desktop/Permissions.h"
#include "gui/windows/Windows.h"

#include <QDesktopServices>

namespace lumenvale {

AppShell::AppShell(Windows& windows, QObject* parent) : QObject(parent), windows_(windows) {
    connect(&Permissions::shared(), &Permissions::grantedChanged, this,
            &AppShell::screenAllowedChanged);
}

QString AppShell::version() {
    return QStringLiteral(LUMENVALE_VERSION);
}

bool AppShell::screenAllowed() const {
    return Permissions::shared().granted().contains(Permissions::Kind::screen);
}

QString AppShell::makerName() {
    return QStringLiteral("tessaly.app");
}

QUrl AppShell::makerUrl() {
    return QUrl(QStringLiteral("https://tessaly.app"));
}

void AppShell::requestScreen() {
    Permissions::shared().requestScreen();
    Permissions::shared().refresh();
}

void AppShell::openSettings() {
    windows_.showSettings();
}

void AppShell::finishWelcome() {
    Store::defaults().setValue(QLatin1String(Store::welcomeShownKey), true);
    Store::sync();
    windows_.close(Windows::View::welcome);
}

void AppShell::openLink(const QUrl& url) {
    QDesktopServices::openUrl(url);
}

} // namespace lumenvale
