#include "base/SaveFolder.h"

#include "base/PathText.h"
#include "base/Store.h"

#include <QDir>
#include <QStandardPaths>

namespace lumenvale::SaveFolder {

std::filesystem::path resolve(const RecordingOptions& options, FolderOrigin origin) {
    const bool named = options.folderPath && !options.folderPath->empty();
    if (named && origin == FolderOrigin::commandLine) {
        return std::filesystem::path(*options.folderPath);
    }
    if (std::optional<std::filesystem::path> test = Store::testFolder()) {
        return *test;
    }
    if (named) {
        return std::filesystem::path(*options.folderPath);
    }
    QString videos = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    if (videos.isEmpty()) {
        videos = QDir::home().filePath(QStringLiteral("Videos"));
    }
    return toPath(videos);
}

} // namespace lumenvale::SaveFolder
