#include "cli/Usage.h"

#include <span>

namespace lumenvale::Usage {

namespace {

// A command's words after "lumenvale", and its options broken into lines as they are
// printed; continuation lines align under the command's first argument.
struct Synopsis {
    const char* command;
    std::span<const char* const> lines;
};

constexpr const char* recordLines[] = {
    "[--screen | --area X,Y,W,H | --window ID|pick] [--seconds N]",
    "[--fps N] [--codec h264|hevc] [--no-pointer] [--clicks]",
    "[--no-countdown] [--no-system-audio] [--mic [SOURCE]]",
    "[--folder DIR]",
};
constexpr Synopsis recordSynopsis{"record", recordLines};

constexpr const char* exportLines[] = {
    "MOVIE [--edit EDIT.json] [--gif] [--codec h264|hevc]",
    "[--output PATH]",
};
constexpr Synopsis exportSynopsis{"export", exportLines};

// `lead` (the start of the first line), the synopsis, and a newline after each line.
QString format(const QString& lead, const Synopsis& synopsis) {
    const QString start =
        lead + QStringLiteral("lumenvale ") + QLatin1String(synopsis.command) + QLatin1Char(' ');
    QString text;
    for (std::size_t i = 0; i < synopsis.lines.size(); ++i) {
        text += (i == 0 ? start : QString(start.size(), QLatin1Char(' '))) +
                QLatin1String(synopsis.lines[i]) + QLatin1Char('\n');
    }
    return text;
}

} // namespace

QString program() {
    return QStringLiteral("Usage:\n"
                          "  lumenvale                 the tray application\n"
                          "  lumenvale screen|area|window|stop\n"
                          "                            record or stop, as the shortcuts do\n"
                          "  lumenvale FILE...         open movies in the editor\n") +
           format(QStringLiteral("  "), recordSynopsis) +
           format(QStringLiteral("  "), exportSynopsis) +
           QStringLiteral("  lumenvale --selftest\n");
}

QString record() {
    return format(QStringLiteral("Usage: "), recordSynopsis) +
           QStringLiteral(
               "\n"
               "Records the screen (the display under the pointer), an area (X11 coordinates,\n"
               "origin top-left) or one window (by its X11 id; on Wayland, \"pick\" has the\n"
               "desktop's dialog pick it), starting from the saved recording options; the\n"
               "flags change this run only. Without --seconds it records until SIGINT or SIGTERM,\n"
               "which stop and save; SIGUSR1 pauses and resumes. Prints the movie's path.\n");
}

QString exportMovie() {
    return format(QStringLiteral("Usage: "), exportSynopsis);
}

} // namespace lumenvale::Usage
