#pragma once

#include "gui/panels/RecordingPanels.h"
#include "gui/settings/PermissionList.h"
#include "gui/settings/SettingsModel.h"
#include "gui/tray/MenuModel.h"
#include "gui/tray/Tray.h"
#include "gui/windows/AppShell.h"
#include "gui/windows/Theme.h"
#include "gui/windows/Windows.h"
#include "hotkeys/ShortcutRecorder.h"

#include <QObject>
#include <QString>
#include <array>
#include <memory>

namespace lumenvale {

class ScreenRecorder;

// The running tray application's parts and what starts them: the menu model, the tray
// icon, the windows with the models their views read, and the menu's rows' actions.
//
// Start-up (finishLaunching), in this order:
//   1. With APP_SNAPSHOT set, nothing else starts (the snapshot runner drives the views).
//   2. Permissions are checked, which starts their polling.
//   3. In a self-test run, nothing else: no hotkeys, no updates, no welcome window.
//   4. The hotkeys load the stored shortcuts and hold them.
//   5. The updater starts (automatic checks only when the user turned them on).
//   6. The welcome window shows unless "welcome.shown" is stored; its "Get Started"
//      stores it.
// Crash recovery of earlier recordings runs after the tray icon shows (except in a
// snapshot run).
//
// Threads: the GUI thread; made once, after QApplication, and kept until it quits.
class AppDelegate : public QObject {
    Q_OBJECT

  public:
    enum class Mode { normal, selfTest, snapshot };

    explicit AppDelegate(Mode mode, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Shows the tray icon and runs start-up.
    void finishLaunching();
    // What a menu row does.
    void perform(TrayMenu::Row row);
    // A notice for the user: on the notice panel and, one a line, on standard error.
    void notify(const QString& text);

    MenuModel& menu() { return menu_; }
    Windows& windows() { return windows_; }
    Mode mode() const { return mode_; }

  private:
    void exposeModels();
    // Tells a settings file problem once, when it first appears.
    void reportStoreProblem();

    Mode mode_;
    ScreenRecorder& recorder_;
    MenuModel menu_;
    Tray tray_;
    Windows windows_;
    Theme theme_;
    AppShell shell_;
    SettingsModel settings_;
    PermissionList permissionList_;
    // After windows_: its panels' windows go before the views' engine.
    RecordingPanels panels_;
    std::array<std::unique_ptr<ShortcutRecorder>, 4> shortcutFields_;
};

} // namespace lumenvale
