#include "shell/App.h"

#include "LumenvaleMedia/LibraryLogging.h"
#include "base/AppIdentity.h"
#include "cli/CommandOutput.h"
#include "cli/ExportCommand.h"
#include "cli/RecordCommand.h"
#include "cli/Usage.h"
#include "gui/instance/LaunchRequest.h"
#include "gui/tray/TrayApp.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <algorithm>
#include <cstdio>
#include <string>
#include <variant>
#include <vector>

namespace lumenvale::App {

namespace {

constexpr int usageStatus = 2;

// The self-test must never touch the user's settings or movies: it runs only with
// APP_STORE naming a folder in /tmp.
bool hasSelfTestFolder() {
    const QString folder = qEnvironmentVariable("APP_STORE");
    if (folder.isEmpty()) {
        return false;
    }
    const QString absolute = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    return absolute.startsWith(QStringLiteral("/tmp/"));
}

void identify() {
    QCoreApplication::setApplicationName(QStringLiteral("Lumenvale"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("lumenvale.app"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LUMENVALE_VERSION));
}

} // namespace

int run(int argc, char** argv) {
    // The commands get the words as the process got them: a path need not be UTF-8.
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    QStringList arguments;
    for (const std::string& word : words) {
        arguments << QString::fromLocal8Bit(word);
    }

    if (arguments.contains(QStringLiteral("--selftest"))) {
        if (!hasSelfTestFolder()) {
            std::fputs("SELFTEST refused: set APP_STORE to a folder in /tmp\n", stderr);
            return 1;
        }
        setLibraryLogging(LibraryLogging::quiet);
        return TrayApp::runSelfTest(argc, argv);
    }

    // The libraries' own lines would interleave with the commands' output and notices.
    setLibraryLogging(LibraryLogging::quiet);
    const QString command = arguments.isEmpty() ? QString() : arguments.first();
    if (command == QLatin1String("record") || command == QLatin1String("export")) {
        QCoreApplication application(argc, argv);
        identify();
        const std::vector<std::string> rest(words.begin() + 1, words.end());
        return command == QLatin1String("record") ? runRecord(rest) : runExport(rest);
    }
    if (command == QLatin1String("--help") || command == QLatin1String("-h")) {
        printTo(stdout, Usage::program());
        return 0;
    }
    // The tray application, or a request for it: an action, movies to open.
    const auto launch = parseLaunch(arguments, QDir::currentPath());
    if (const QString* problem = std::get_if<QString>(&launch)) {
        printError(QStringLiteral("lumenvale: ") + *problem + QStringLiteral("\n\n") +
                   Usage::program());
        return usageStatus;
    }
    return TrayApp::run(argc, argv, std::get<LaunchRequest>(launch));
}

} // namespace lumenvale::App
