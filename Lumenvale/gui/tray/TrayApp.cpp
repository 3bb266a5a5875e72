#include "gui/tray/TrayApp.h"

#include "base/AppIdentity.h"
#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "desktop/Permissions.h"
#include "desktop/Updates.h"
#include "gui/editor/EditorWindow.h"
#include "gui/instance/AppInstance.h"
#include "gui/tray/MenuModel.h"
#include "gui/tray/Tray.h"
#include "hotkeys/HotkeyCenter.h"
#include "recorder/RecActionRun.h"
#include "recorder/ScreenRecorder.h"
#include "recorder/StartupRecovery.h"

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

void perform(TrayMenu::Row row, ScreenRecorder& recorder) {
    if (const std::optional<RecAction> action = TrayMenu::recordAction(row)) {
        runAction(*action, recorder);
        return;
    }
    switch (row) {
    case TrayMenu::Row::stop:
        recorder.stop();
        return;
    case TrayMenu::Row::editLast:
        if (const std::optional<Recording>& last = recorder.last()) {
            EditorWindow::shared().open(QUrl::fromLocalFile(toQString(last->path)));
        }
        return;
    case TrayMenu::Row::update:
    case TrayMenu::Row::checkForUpdates:
        Updates::shared().checkByHand();
        return;
    case TrayMenu::Row::quit:
        QApplication::quit();
        return;
    default:
        return;
    }
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

bool hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

int run(int argc, char** argv, const LaunchRequest& request) {
    if (!hasDisplay()) {
        std::fputs("Lumenvale needs a desktop session: no display was found. "
                   "Use “lumenvale record” to record from a script.\n",
                   stderr);
        return 1;
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Lumenvale"));
    QApplication::setApplicationVersion(QStringLiteral(LUMENVALE_VERSION));
    QGuiApplication::setDesktopFileName(QString::fromLatin1(applicationID));
    QApplication::setQuitOnLastWindowClosed(false);

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

    // With a snapshot run requested, start-up does nothing else.
    if (qEnvironmentVariableIsEmpty("APP_SNAPSHOT")) {
        Permissions::shared().refresh();
    }
    ScreenRecorder& recorder = ScreenRecorder::shared();

    MenuModel menu(recorder, HotkeyCenter::shared(), Updates::shared());
    Tray tray(menu);
    QObject::connect(&menu, &MenuModel::chosen, &tray,
                     [&recorder](TrayMenu::Row row) { perform(row, recorder); });
    const auto notify = [&tray](const QString& text) {
        tray.notify(text);
        printLine(text);
    };
    QObject::connect(&recorder, &ScreenRecorder::noticeShown, &tray, notify);
    QObject::connect(&EditorWindow::shared(), &EditorWindow::noticeShown, &tray, notify);
    tray.show();

    if (qEnvironmentVariableIsEmpty("APP_SNAPSHOT")) {
        HotkeyCenter::shared().load();
        StartupRecovery::run(SaveFolder::resolve(recorder.options()), &tray,
                             [notify](const StartupRecovery::Report& report) {
                                 for (const QString& notice : report.notices) {
                                     notify(notice);
                                 }
                             });
    }
    QTimer::singleShot(0, &tray, [request] { performLaunch(request); });
    return QApplication::exec();
}

} // namespace lumenvale::TrayApp
