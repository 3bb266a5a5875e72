#pragma once

#include <QMenu>
#include <QObject>
#include <QPoint>
#include <QSystemTrayIcon>

namespace lumenvale {

class MenuModel;

// The application's icon in the tray: a StatusNotifierItem where the desktop runs a
// watcher, an XEmbed icon otherwise. Its context menu carries the menu's lines as
// native entries (desktops such as GNOME's AppIndicator show only menus); activating
// the icon asks for the popup menu instead. The icon shows whether a recording runs.
//
// Threads: the GUI thread. The model must outlive the tray.
class Tray : public QObject {
    Q_OBJECT

  public:
    explicit Tray(MenuModel& model, QObject* parent = nullptr);

    // Shows the icon.
    void show();
    // Where the icon is on the screen, in Qt's (top-left) coordinates; nothing when the
    // desktop does not tell.
    std::optional<QRect> iconGeometry() const;
    // A transient notice from the icon.
    void notify(const QString& text);

  signals:
    // The user activated the icon (a left click): show the popup menu.
    void popupRequested();

  private:
    void rebuildMenu();
    void showRecording();

    MenuModel& model_;
    QSystemTrayIcon icon_;
    QMenu menu_;
};

} // namespace lumenvale
