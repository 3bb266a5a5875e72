#include "gui/app/AppDelegate.h"

#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "base/Store.h"
#include "desktop/Permissions.h"
#include "desktop/Updates.h"
#include "gui/editor/EditorWindow.h"
#include "hotkeys/HotkeyCenter.h"
#include "recorder/RecActionRun.h"
#include "recorder/ScreenRecorder.h"
#include "recorder/StartupRecovery.h"

#include <QApplication>
#include <QIcon>
#include <QQuickWindow>
#include <cstdio>

namespace lumenvale {

namespace {

void printLine(const QString& text) {
    std::fputs((text + QLatin1Char('\n')).toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

} // namespace

AppDelegate::AppDelegate(Mode mode, QObject* parent)
    : QObject(parent), mode_(mode), recorder_(ScreenRecorder::shared()),
      menu_(recorder_, HotkeyCenter::shared(), Updates::shared()), tray_(menu_), shell_(windows_),
      settings_(recorder_), panels_(recorder_, windows_, &HotkeyCenter::shared(),
                                    [](const QUrl& file) { EditorWindow::shared().open(file); }) {
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/app.svg")));
    exposeModels();
    connect(&menu_, &MenuModel::chosen, this, &AppDelegate::perform);
    connect(&tray_, &Tray::popupRequested, this,
            [this] { windows_.showMenu(tray_.iconGeometry()); });
    // The recorder shows its notices on the panels itself.
    connect(&recorder_, &ScreenRecorder::noticeShown, this, &printLine);
    connect(&recorder_, &ScreenRecorder::optionsChanged, this, &AppDelegate::reportStoreProblem);
    connect(&HotkeyCenter::shared(), &HotkeyCenter::combosChanged, this,
            &AppDelegate::reportStoreProblem);
    connect(&EditorWindow::shared(), &EditorWindow::noticeShown, this, &AppDelegate::notify);
    EditorWindow::shared().attach(windows_,
                                  [this](const Recording& movie) { panels_.showCard(movie); });
    connect(
        &Updates::shared(), &Updates::checkedByHand, this,
        [this](const QString& text, const QUrl& page) { windows_.showUpdateCheck(text, page); });
}

AppDelegate::~AppDelegate() {
    recorder_.setUi(nullptr); // the recorder outlives the panels
    EditorWindow::shared().closeAll();
    // The views read the models below; they go first.
    windows_.destroyAll();
}

void AppDelegate::exposeModels() {
    windows_.expose(QStringLiteral("menu"), &menu_);
    windows_.expose(QStringLiteral("theme"), &theme_);
    windows_.expose(QStringLiteral("app"), &shell_);
    windows_.expose(QStringLiteral("updates"), &Updates::shared());
    windows_.expose(QStringLiteral("hotkeys"), &HotkeyCenter::shared());
    windows_.expose(QStringLiteral("settings"), &settings_);
    windows_.expose(QStringLiteral("permissionList"), &permissionList_);
    static constexpr std::array<const char*, 4> fieldNames{"screenShortcut", "areaShortcut",
                                                           "windowShortcut", "stopShortcut"};
    for (std::size_t index = 0; index < allRecActions.size(); ++index) {
        shortcutFields_[index] =
            std::make_unique<ShortcutRecorder>(allRecActions[index], HotkeyCenter::shared());
        windows_.expose(QString::fromLatin1(fieldNames[index]), shortcutFields_[index].get());
    }
}

void AppDelegate::finishLaunching() {
    tray_.show();
    if (mode_ == Mode::snapshot) {
        return;
    }
    recorder_.setUi(&panels_);
    reportStoreProblem();
    Permissions::shared().refresh();
    StartupRecovery::run(SaveFolder::resolve(recorder_.options()), this,
                         [this](const StartupRecovery::Report& report) {
                             for (const QString& notice : report.notices) {
                                 notify(notice);
                             }
                         });
    if (mode_ == Mode::selfTest) {
        return;
    }
    HotkeyCenter::shared().load();
    Updates::shared().start();
    if (!Store::defaults().value(QLatin1String(Store::welcomeShownKey), false).toBool()) {
        windows_.show(Windows::View::welcome);
    }
}

void AppDelegate::perform(TrayMenu::Row row) {
    if (const std::optional<RecAction> action = TrayMenu::recordAction(row)) {
        runAction(*action, recorder_);
        return;
    }
    switch (row) {
    case TrayMenu::Row::stop:
        recorder_.stop();
        return;
    case TrayMenu::Row::editLast:
        if (const std::optional<Recording>& last = recorder_.last()) {
            EditorWindow::shared().open(QUrl::fromLocalFile(toQString(last->path)));
        }
        return;
    case TrayMenu::Row::openRecording:
        EditorWindow::shared().choose();
        return;
    case TrayMenu::Row::update:
    case TrayMenu::Row::checkForUpdates:
        Updates::shared().checkByHand();
        return;
    case TrayMenu::Row::about:
        windows_.show(Windows::View::about);
        return;
    case TrayMenu::Row::settings:
        windows_.showSettings();
        return;
    case TrayMenu::Row::quit:
        QApplication::quit();
        return;
    case TrayMenu::Row::recordScreen:
    case TrayMenu::Row::recordArea:
    case TrayMenu::Row::recordWindow:
        return; // handled above
    }
}

void AppDelegate::reportStoreProblem() {
    const QString problem = Store::takeUnreportedProblem();
    if (!problem.isEmpty()) {
        notify(problem);
    }
}

void AppDelegate::notify(const QString& text) {
    panels_.showNotice(text);
    printLine(text);
}

} // namespace lumenvale
