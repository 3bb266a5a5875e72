#pragma once

#include <QObject>
#include <QQmlEngine>
#include <QRect>
#include <QString>
#include <QUrl>
#include <QVariantMap>
#include <map>
#include <optional>

class QQuickWindow;

namespace lumenvale {

// The application's windows, each a view in QML (qrc:/qml/<Name>.qml) over models in
// C++: one QML engine for all, each window made on first use and kept for the life of
// the process, so reopening a window shows it as the user left it. The models reach the
// views as named context objects (expose()), set before the first window is made.
//
//   menu         MenuView: the tray's popup menu, beside the icon or at the pointer
//   settings     SettingsView: fixed size, tabs General, Shortcuts, Video, Audio,
//                Permissions
//   welcome      WelcomeView: the first launch's three steps
//   about        AboutView: icon, name, version, maker
//   updateCheck  UpdateCheckView: the result of a check by hand
//
// Threads: the GUI thread.
class Windows : public QObject {
    Q_OBJECT

  public:
    enum class View { menu, settings, welcome, about, updateCheck };

    explicit Windows(QObject* parent = nullptr);
    ~Windows() override;

    // The views' one engine, for owners that make their windows themselves.
    QQmlEngine& engine() { return engine_; }

    // Serves "image://NAME/..." to every view; the engine takes `provider` over.
    void addImageProvider(const QString& name, QQmlImageProviderBase* provider);

    // Makes `object` reachable from every view as `name`.
    void expose(const QString& name, QObject* object);

    // Shows the view's window (making it on first use), raised and active. Nullptr when
    // the view could not be made (its QML errors go to standard error).
    QQuickWindow* show(View view);
    void close(View view);
    // The view's window when it has been made.
    QQuickWindow* window(View view) const;

    // The popup menu next to the tray icon (`icon`, in Qt's screen coordinates), or at
    // the pointer when the icon's place is unknown; kept inside the screen.
    void showMenu(std::optional<QRect> icon);
    void showSettings() { show(View::settings); }
    // The result of a check for updates by hand, with a button that opens the download
    // page when there is one.
    void showUpdateCheck(const QString& text, const QUrl& downloadPage);

    static QString fileName(View view);

    // A new window of the view qrc:/qml/<name>.qml with `properties` set before it
    // loads, for views that exist more than once or belong to another owner (the
    // panels around a recording, one selection picker per display). Owned by the
    // caller; nullptr when the view could not be made (its QML errors go to standard
    // error).
    QQuickWindow* create(const QString& name, const QVariantMap& properties = {});

    // Places `window` in the middle of the usable part of the screen with the pointer,
    // as every window but the menu opens.
    static void centre(QQuickWindow& window);

    // Destroys every window made so far: before the models their views read go away.
    void destroyAll();

  private:
    QQuickWindow* make(View view);

    QQmlEngine engine_;
    std::map<View, QQuickWindow*> windows_;
};

} // namespace lumenvale
