#include "gui/instance/LaunchRequest.h"

#include <QDir>
#include <QFileInfo>

namespace lumenvale {

namespace {

bool isFileUrl(const QString& word) {
    return word.startsWith(QLatin1String("file:"));
}

bool looksLikeFile(const QString& word, const QDir& folder) {
    return isFileUrl(word) || word.contains(QLatin1Char('/')) || word.contains(QLatin1Char('.')) ||
           QFileInfo::exists(folder.absoluteFilePath(word));
}

QUrl fileUrl(const QString& word, const QDir& folder) {
    if (isFileUrl(word)) {
        return QUrl(word);
    }
    return QUrl::fromLocalFile(QDir::cleanPath(folder.absoluteFilePath(word)));
}

} // namespace

std::variant<LaunchRequest, QString> parseLaunch(const QStringList& words,
                                                 const QString& workingFolder) {
    if (words.isEmpty()) {
        return LaunchRequest{ActivateRequest{}};
    }
    const QString& first = words.first();
    if (const auto action = recActionFromRawValue(first.toStdString())) {
        if (words.size() > 1) {
            return QStringLiteral("“%1” takes nothing after it.").arg(first);
        }
        return LaunchRequest{ActionRequest{*action}};
    }
    if (first.startsWith(QLatin1Char('-'))) {
        return QStringLiteral("unknown option “%1”.").arg(first);
    }
    const QDir folder(workingFolder);
    if (!looksLikeFile(first, folder)) {
        return QStringLiteral("unknown command “%1”.").arg(first);
    }
    OpenRequest open;
    for (const QString& word : words) {
        open.files.append(fileUrl(word, folder));
    }
    return LaunchRequest{open};
}

} // namespace lumenvale
