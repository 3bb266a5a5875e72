#pragma once

#include <QFile>
#include <QString>
#include <filesystem>

namespace lumenvale {

// File paths cross between Qt (QString) and the media layer (std::filesystem::path)
// in the file-system encoding of the locale, as QFile encodes them.
inline std::filesystem::path toPath(const QString& text) {
    return std::filesystem::path(QFile::encodeName(text).toStdString());
}

inline QString toQString(const std::filesystem::path& path) {
    return QFile::decodeName(QByteArray::fromStdString(path.native()));
}

} // namespace lumenvale
