#include "gui/tray/TrayApp.h"

#include "base/AppIdentity.h"
#include "desktop/Desktop.h"
#include "gui/app/AppDelegate.h"
#include "gui/editor/EditorWindow.h"
#include "gui/editor/PreviewSurface.h"
#include "gui/instance/AppInstance.h"
#include "gui/selftest/SelfTest.h"
#include "gui/snapshot/Snapshot.h"
#include "recorder/RecActionRun.h"
#include "recorder/ScreenRecorder.h"

#include <QApplication>
#include <QTimer>
#include <cstdio>
#include <variant>

namespace lumenvale::TrayApp {

namespace {

// What a launch asks for, this process's own or a later one's.
void performLaunch(const LaunchRequest& request) {
    if (const auto* action = std::get_if<ActionRequest>(&request)) {
        runAction(action->action, ScreenRecorder::shared());
    } else if (const auto* open = std::get_if<OpenRequest>(&request)) {
        for (const QUrl& file : open->files) {
            EditorWindow::shared().open(file);
        }
    }
    // Activation: the application is up, with its icon in the tray; nothing new shows.
}

void printLine(const QString& text) {
    std::fputs((text + QLatin1Char('\n')).toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

// Gives the request to the Lumenvale that runs already; the exit status.
int handOver(const LaunchRequest& request) {
    if (const std::optional<QString> problem = AppInstance::forward(request)) {
        printLine(*problem);
        return 1;
    }
    return 0;
}

// Whether windows can show here; picks Qt's platform for them (before QApplication).
bool hasDisplay() {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fputs("Lumenvale needs a desktop session: no display was found. "
                   "Use “lumenvale record” to record from a script.\n",
                   stderr);
        return false;
    }
    if (const std::optional<QString> problem = Desktop::chooseGuiPlatform()) {
        printLine(*problem);
        return false;
    }
    return true;
}

void identify() {
    QApplication::setApplicationName(QStringLiteral("Lumenvale"));
    QApplication::setApplicationVersion(QStringLiteral(LUMENVALE_VERSION));
    QGuiApplication::setDesktopFileName(QString::fromLatin1(applicationID));
    QApplication::setQuitOnLastWindowClosed(false);
    // Before any window: the editor's preview draws through OpenGL.
    PreviewSurface::registerQmlType();
}

} // namespace

int runSelfTest(int argc, char** argv) {
    if (!hasDisplay()) {
        return 1;
    }
    QApplication application(argc, argv);
    identify();
    AppDelegate delegate(AppDelegate::Mode::selfTest);
    delegate.finishLaunching();
    QTimer::singleShot(0, &delegate, [&delegate] {
        SelfTest::start(delegate, [](int status) { QCoreApplication::exit(status); });
    });
    return QApplication::exec();
}

int run(int argc, char** argv, const LaunchRequest& request) {
    if (!hasDisplay()) {
        return 1;
    }
    QApplication application(argc, argv);
    identify();

    const AppDelegate::Mode mode = qEnvironmentVariableIsEmpty("APP_SNAPSHOT")
                                       ? AppDelegate::Mode::normal
                                       : AppDelegate::Mode::snapshot;
    if (mode == AppDelegate::Mode::snapshot) {
        // A private run that draws the windows: it neither claims nor hands over.
        AppDelegate delegate(mode);
        delegate.finishLaunching();
        // Started from the event loop, so that its end can end the loop.
        QTimer::singleShot(0, &delegate, [&delegate] {
            Snapshot::start(delegate, [](int status) { QCoreApplication::exit(status); });
        });
        return QApplication::exec();
    }

    // Before anything shows: a second launch only hands its request over.
    const AppInstance::Claim claim = AppInstance::claim(&performLaunch);
    switch (claim.outcome) {
    case AppInstance::Claim::Outcome::heldElsewhere:
        return handOver(request);
    case AppInstance::Claim::Outcome::unavailable:
        printLine(claim.problem);
        break;
    case AppInstance::Claim::Outcome::claimed:
        break;
    }

    AppDelegate delegate(AppDelegate::Mode::normal);
    delegate.finishLaunching();
    QTimer::singleShot(0, &delegate, [request] { performLaunch(request); });
    return QApplication::exec();
}

} // namespace lumenvale::TrayApp
