#include "desktop/OpenWith.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTextStream>
#include <QUrl>
#include <algorithm>

namespace lumenvale::OpenWith {

namespace {

struct Entry {
    Application application;
    QStringList mimeTypes;
    bool shown = true;
};

// The [Desktop Entry] group of a desktop entry file; nothing of other groups.
Entry readEntry(const QString& path) {
    Entry entry;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        entry.shown = false;
        return entry;
    }
    QTextStream in(&file);
    bool inMainGroup = false;
    QString type;
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inMainGroup = line == QStringLiteral("[Desktop Entry]");
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (!inMainGroup || equals <= 0 || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QStringLiteral("Name")) {
            entry.application.name = value;
        } else if (key == QStringLiteral("Exec")) {
            entry.application.exec = QProcess::splitCommand(value);
        } else if (key == QStringLiteral("MimeType")) {
            entry.mimeTypes = value.split(QLatin1Char(';'), Qt::SkipEmptyParts);
        } else if (key == QStringLiteral("Type")) {
            type = value;
        } else if ((key == QStringLiteral("NoDisplay") || key == QStringLiteral("Hidden")) &&
                   value == QStringLiteral("true")) {
            entry.shown = false;
        }
    }
    entry.shown = entry.shown && type == QStringLiteral("Application") &&
                  !entry.application.name.isEmpty() && !entry.application.exec.isEmpty();
    return entry;
}

} // namespace

std::vector<Application> applicationsFor(const QString& mimeType) {
    std::vector<Application> found;
    QSet<QString> seen; // desktop file names: the first folder's entry wins
    for (const QString& folder :
         QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation)) {
        const QDir directory(folder);
        for (const QString& name :
             directory.entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name)) {
            if (seen.contains(name)) {
                continue;
            }
            seen.insert(name);
            const Entry entry = readEntry(directory.filePath(name));
            if (entry.shown && entry.mimeTypes.contains(mimeType)) {
                found.push_back(entry.application);
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const Application& a, const Application& b) {
        return QString::localeAwareCompare(a.name, b.name) < 0;
    });
    return found;
}

bool open(const Application& application, const QString& file) {
    // The field codes: %f and %F take the file, %u and %U its URL, %% a percent sign;
    // the others (%i, %c, %k and the deprecated ones) are dropped.
    QStringList command;
    for (const QString& argument : application.exec) {
        if (argument == QStringLiteral("%f") || argument == QStringLiteral("%F")) {
            command << file;
        } else if (argument == QStringLiteral("%u") || argument == QStringLiteral("%U")) {
            command << QUrl::fromLocalFile(file).toString();
        } else if (argument.size() == 2 && argument.startsWith(QLatin1Char('%')) &&
                   argument != QStringLiteral("%%")) {
            continue;
        } else {
            command << QString(argument).replace(QStringLiteral("%%"), QStringLiteral("%"));
        }
    }
    if (command.isEmpty()) {
        return false;
    }
    const QString program = command.takeFirst();
    return QProcess::startDetached(program, command);
}

} // namespace lumenvale::OpenWith
