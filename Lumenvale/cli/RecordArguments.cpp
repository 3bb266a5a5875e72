#include "cli/RecordArguments.h"

#include "base/PathText.h"

#include <QDir>
#include <cmath>
#include <filesystem>
#include <limits>

namespace lumenvale {

namespace {

constexpr std::int64_t maximumFps = 120;

std::optional<Rect> parseArea(const QString& text) {
    const QStringList fields = text.split(QLatin1Char(','));
    if (fields.size() != 4) {
        return std::nullopt;
    }
    double values[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        values[i] = fields[i].trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(values[i])) {
            return std::nullopt;
        }
    }
    if (values[2] <= 0 || values[3] <= 0) {
        return std::nullopt;
    }
    return Rect{values[0], values[1], values[2], values[3]};
}

std::optional<std::uint32_t> parseWindow(const QString& text) {
    bool ok = false;
    const qulonglong value = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)
                                 ? text.mid(2).toULongLong(&ok, 16)
                                 : text.toULongLong(&ok, 10);
    if (!ok || value == 0 || value > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

} // namespace

RecordParse parseRecordArguments(const std::vector<std::string>& arguments) {
    // Flags and numbers are read as text; the folder keeps its bytes.
    QStringList words;
    for (const std::string& argument : arguments) {
        words << QString::fromLocal8Bit(argument);
    }
    RecordRequest request;
    int targets = 0;
    for (qsizetype i = 0; i < words.size(); ++i) {
        const QString& flag = words[i];
        const auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= words.size()) {
                return std::nullopt;
            }
            return words[++i];
        };
        const auto missing = [&] {
            return QStringLiteral("%1 needs a value.").arg(flag);
        };

        if (flag == QLatin1String("--help") || flag == QLatin1String("-h")) {
            return HelpRequested{};
        } else if (flag == QLatin1String("--screen")) {
            ++targets;
            request.kind = RecordKind::screen;
        } else if (flag == QLatin1String("--area")) {
            ++targets;
            const std::optional<QString> text = value();
            if (!text) {
                return missing();
            }
            request.areaTopLeft = parseArea(*text);
            if (!request.areaTopLeft) {
                return QStringLiteral("--area takes X,Y,W,H with a positive width and height, "
                                      "not “%1”.")
                    .arg(*text);
            }
            request.kind = RecordKind::area;
        } else if (flag == QLatin1String("--window")) {
            ++targets;
            const std::optional<QString> text = value();
            if (!text) {
                return missing();
            }
            // "pick": the desktop's dialog picks it (Wayland).
            if (*text != QLatin1String("pick")) {
                request.windowID = parseWindow(*text);
                if (!request.windowID) {
                    return QStringLiteral("--window takes an X11 window id or “pick”, not “%1”.")
                        .arg(*text);
                }
            }
            request.kind = RecordKind::window;
        } else if (flag == QLatin1String("--seconds")) {
            const std::optional<QString> text = value();
            if (!text) {
                return missing();
            }
            bool ok = false;
            const double seconds = text->toDouble(&ok);
            if (!ok || !std::isfinite(seconds) || seconds <= 0 || seconds > 86400) {
                return QStringLiteral("--seconds takes a positive number of seconds, not “%1”.")
                    .arg(*text);
            }
            request.seconds = seconds;
        } else if (flag == QLatin1String("--fps")) {
            const std::optional<QString> text = value();
            if (!text) {
                return missing();
            }
            bool ok = false;
            const qlonglong fps = text->toLongLong(&ok);
            if (!ok || fps < 1 || fps > maximumFps) {
                return QStringLiteral("--fps takes a whole number from 1 to %1, not “%2”.")
                    .arg(maximumFps)
                    .arg(*text);
            }
            request.fps = fps;
        } else if (flag == QLatin1String("--codec")) {
            const std::optional<QString> text = value();
            if (!text) {
                return missing();
            }
            request.codec = codecFromRawValue(text->toStdString());
            if (!request.codec) {
                return QStringLiteral("--codec takes h264 or hevc, not “%1”.").arg(*text);
            }
        } else if (flag == QLatin1String("--no-pointer")) {
            request.hidePointer = true;
        } else if (flag == QLatin1String("--clicks")) {
            request.showClicks = true;
        } else if (flag == QLatin1String("--no-countdown")) {
            request.skipCountdown = true;
        } else if (flag == QLatin1String("--no-system-audio")) {
            request.skipSystemAudio = true;
        } else if (flag == QLatin1String("--mic")) {
            request.microphone = true;
            if (i + 1 < words.size() && !words[i + 1].startsWith(QLatin1String("--"))) {
                request.microphoneSource = arguments[static_cast<std::size_t>(++i)];
            }
        } else if (flag == QLatin1String("--folder")) {
            const std::optional<QString> text = value();
            if (!text || text->isEmpty()) {
                return missing();
            }
            std::error_code failure;
            const std::filesystem::path folder =
                std::filesystem::absolute(arguments[static_cast<std::size_t>(i)], failure);
            if (failure) {
                return QStringLiteral("--folder “%1” can’t be made absolute: %2.")
                    .arg(*text, QString::fromStdString(failure.message()));
            }
            request.folder = folder.string();
        } else {
            return QStringLiteral("unknown option “%1”.").arg(flag);
        }
    }
    if (targets > 1) {
        return QStringLiteral("choose one of --screen, --area and --window.");
    }
    return request;
}

RecordingOptions applyFlags(RecordingOptions options, const RecordRequest& request) {
    if (request.fps) {
        options.fps = *request.fps;
    }
    if (request.codec) {
        options.codec = *request.codec;
    }
    if (request.hidePointer) {
        options.showsPointer = false;
    }
    if (request.showClicks) {
        options.showsClicks = true;
    }
    if (request.skipCountdown) {
        options.countdown = false;
    }
    if (request.skipSystemAudio) {
        options.systemAudio = false;
    }
    if (request.microphone) {
        options.microphone = true;
        if (request.microphoneSource) {
            options.microphoneID = request.microphoneSource;
        }
    }
    if (request.folder) {
        options.folderPath = request.folder;
    }
    return options;
}

} // namespace lumenvale
