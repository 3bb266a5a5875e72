#include "desktop/Autostart.h"

#include "base/AppIdentity.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

namespace lumenvale::Autostart {

namespace {

// Desktop entry Exec values quote arguments with spaces and escape quotes and
// backslashes inside the quotes.
QString quotedExec(const QString& program) {
    QString escaped = program;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
        .replace(QLatin1Char('"'), QStringLiteral("\\\""))
        .replace(QLatin1Char('`'), QStringLiteral("\\`"))
        .replace(QLatin1Char('$'), QStringLiteral("\\$"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

} // namespace

QString entryPath() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return QDir(config).filePath(QStringLiteral("autostart/") + QLatin1String(applicationID) +
                                 QStringLiteral(".desktop"));
}

bool isEnabled() {
    if (!QFile::exists(entryPath())) {
        return false;
    }
    // A desktop entry is close enough to INI for these two keys.
    QSettings entry(entryPath(), QSettings::IniFormat);
    entry.beginGroup(QStringLiteral("Desktop Entry"));
    const bool hidden = entry.value(QStringLiteral("Hidden")).toString() == QLatin1String("true");
    const bool off = entry.value(QStringLiteral("X-GNOME-Autostart-enabled")).toString() ==
                     QLatin1String("false");
    return !hidden && !off;
}

QString set(Login login) {
    const QString path = entryPath();
    if (login == Login::stayQuiet) {
        if (QFile::exists(path) && !QFile::remove(path)) {
            return QStringLiteral("Lumenvale couldn’t remove “%1”, so it still starts at login.")
                .arg(path);
        }
        return {};
    }
    const QString failed =
        QStringLiteral("Lumenvale couldn’t write “%1”, so it won’t start at login.").arg(path);
    if (!QDir().mkpath(QFileInfo(path).path())) {
        return failed;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return failed;
    }
    const QString text =
        QStringLiteral("[Desktop Entry]\n"
                       "Type=Application\n"
                       "Name=Lumenvale\n"
                       "Comment=Screen recorder in the tray\n"
                       "Exec=%1\n"
                       "Icon=%2\n"
                       "Terminal=false\n"
                       "X-GNOME-Autostart-enabled=true\n")
            .arg(quotedExec(QCoreApplication::applicationFilePath()), QLatin1String(applicationID));
    file.write(text.toUtf8());
    return file.commit() ? QString() : failed;
}

} // namespace lumenvale::Autostart
