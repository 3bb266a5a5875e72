#include "gui/tray/TrayApp.h"

#include "base/AppIdentity.h"
#include "base/SaveFolder.h"
#include "desktop/Permissions.h"
#include "gui/editor/EditorWindow.h"
#include "gui/instance/AppInstance.h"
#include "gui/tray/TrayMenu.h"
#include "hotkeys/HotkeyCenter.h"
#include "recorder/RecActionRun.h"
#include "recorder/ScreenRecorder.h"
#include "recorder/StartupRecovery.h"

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cstdio>
#include <utility>
#include <variant>
#include <vector>

namespace lumenvale::TrayApp {

namespace {

// The theme's record icon, else a drawn dot: grey while idle, red while recording.
QIcon trayIcon(bool recording) {
    const QString name =
        recording ? QStringLiteral("media-record") : QStringLiteral("camera-video-symbolic");
    if (QIcon::hasThemeIcon(name)) {
        return QIcon::fromTheme(name);
    }
    QPixmap dot(64, 64);
    dot.fill(Qt::transparent);
    QPainter painter(&dot);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(recording ? QColor(0xE0, 0x30, 0x30) : QColor(0x80, 0x80, 0x88));
    painter.drawEllipse(8, 8, 48, 48);
    return QIcon(dot);
}

void perform(TrayMenu::Action action, ScreenRecorder& recorder) {
    switch (action) {
    case TrayMenu::Action::recordScreen:
        recorder.record(RecordKind::screen);
        return;
    case TrayMenu::Action::stop:
        recorder.stop();
        return;
    case TrayMenu::Action::quit:
        QApplication::quit();
        return;
    }
}

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

    QSystemTrayIcon tray(trayIcon(false));
    tray.setToolTip(QStringLiteral("Lumenvale"));
    QMenu menu;
    std::vector<std::pair<TrayMenu::Action, QAction*>> items;
    for (const TrayMenu::Entry& entry : TrayMenu::entries()) {
        if (!entry.action) {
            menu.addSeparator();
            continue;
        }
        const TrayMenu::Action action = *entry.action;
        QAction* item = menu.addAction(QString::fromUtf8(entry.title));
        QObject::connect(item, &QAction::triggered, &recorder,
                         [&recorder, action] { perform(action, recorder); });
        items.emplace_back(action, item);
    }
    const auto showPhase = [&] {
        for (const auto& [action, item] : items) {
            item->setEnabled(TrayMenu::enabled(action, recorder.phase()));
        }
        tray.setIcon(trayIcon(TrayMenu::showsRecording(recorder.phase())));
    };
    QObject::connect(&recorder, &ScreenRecorder::phaseChanged, &tray, showPhase);
    const auto notify = [&tray](const QString& text) {
        tray.showMessage(QStringLiteral("Lumenvale"), text);
        printLine(text);
    };
    QObject::connect(&recorder, &ScreenRecorder::noticeShown, &tray, notify);
    QObject::connect(&EditorWindow::shared(), &EditorWindow::noticeShown, &tray, notify);
    showPhase();
    tray.setContextMenu(&menu);
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
