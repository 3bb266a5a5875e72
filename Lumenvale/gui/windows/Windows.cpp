#include "gui/windows/Windows.h"

#include <QCursor>
#include <QGuiApplication>
#include <QIcon>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQuickImageProvider>
#include <QQuickWindow>
#include <QScreen>
#include <cstdio>

namespace lumenvale {

namespace {

// Where a popup of `size` goes next to `anchor` (the tray icon, or the pointer as an
// empty rectangle): below it on the top half of the screen, above it on the bottom half;
// its left edge at the anchor's, moved left as far as needed to stay on the screen.
QPoint popupPlace(const QRect& anchor, const QSize& size, const QRect& screen) {
    const bool below = anchor.center().y() < screen.center().y();
    int y = below ? anchor.bottom() + 1 : anchor.top() - size.height();
    int x = anchor.left();
    x = std::max(screen.left(), std::min(x, screen.right() + 1 - size.width()));
    y = std::max(screen.top(), std::min(y, screen.bottom() + 1 - size.height()));
    return {x, y};
}

// "image://theme/NAME": the desktop icon theme's NAME, for the menu's rows. An icon the
// theme lacks comes back transparent: the row keeps its icon column, blank.
class ThemeIconProvider : public QQuickImageProvider {
  public:
    ThemeIconProvider() : QQuickImageProvider(QQuickImageProvider::Pixmap) {}

    QPixmap requestPixmap(const QString& id, QSize* size, const QSize& requestedSize) override {
        const QSize wanted = requestedSize.isValid() ? requestedSize : QSize(16, 16);
        QPixmap pixmap = QIcon::fromTheme(id).pixmap(wanted);
        if (pixmap.isNull()) {
            pixmap = QPixmap(wanted);
            pixmap.fill(Qt::transparent);
        }
        if (size != nullptr) {
            *size = pixmap.size();
        }
        return pixmap;
    }
};

} // namespace

Windows::Windows(QObject* parent) : QObject(parent) {
    // The standard controls in the style that follows the application's palette.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_STYLE")) {
        qputenv("QT_QUICK_CONTROLS_STYLE", "Fusion");
    }
    engine_.addImageProvider(QStringLiteral("theme"), new ThemeIconProvider);
}

Windows::~Windows() {
    destroyAll();
}

void Windows::destroyAll() {
    for (auto& [view, window] : windows_) {
        delete window;
    }
    windows_.clear();
}

void Windows::addImageProvider(const QString& name, QQmlImageProviderBase* provider) {
    engine_.addImageProvider(name, provider);
}

void Windows::expose(const QString& name, QObject* object) {
    engine_.rootContext()->setContextProperty(name, object);
}

QString Windows::fileName(View view) {
    switch (view) {
    case View::menu:
        return QStringLiteral("MenuView");
    case View::settings:
        return QStringLiteral("SettingsView");
    case View::welcome:
        return QStringLiteral("WelcomeView");
    case View::about:
        return QStringLiteral("AboutView");
    case View::updateCheck:
        return QStringLiteral("UpdateCheckView");
    }
    return {};
}

QQuickWindow* Windows::create(const QString& name, const QVariantMap& properties) {
    QQmlComponent component(&engine_,
                            QUrl(QStringLiteral("qrc:/qml/") + name + QStringLiteral(".qml")));
    // Qt 6.4 crashes when a component that did not load is asked to create.
    QObject* object =
        component.isReady() ? component.createWithInitialProperties(properties) : nullptr;
    auto* made = qobject_cast<QQuickWindow*>(object);
    if (made == nullptr) {
        // A view that does not load is a fault of this build, not of the user's input.
        std::fprintf(stderr, "Lumenvale: the view %s did not load: %s\n", qPrintable(name),
                     qPrintable(component.errorString()));
        delete object;
    }
    return made;
}

QQuickWindow* Windows::make(View view) {
    if (QQuickWindow* made = window(view)) {
        return made;
    }
    QQuickWindow* made = create(fileName(view));
    if (made == nullptr) {
        return nullptr;
    }
    windows_[view] = made;
    if (view != View::menu) {
        centre(*made);
    }
    return made;
}

void Windows::centre(QQuickWindow& window) {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    const QRect area = screen->availableGeometry();
    window.setPosition(area.center() - QPoint(window.width() / 2, window.height() / 2));
}

QQuickWindow* Windows::show(View view) {
    QQuickWindow* shown = make(view);
    if (shown != nullptr) {
        shown->show();
        shown->raise();
        shown->requestActivate();
    }
    return shown;
}

void Windows::close(View view) {
    if (QQuickWindow* open = window(view)) {
        open->close();
    }
}

QQuickWindow* Windows::window(View view) const {
    const auto found = windows_.find(view);
    return found == windows_.end() ? nullptr : found->second;
}

void Windows::showMenu(std::optional<QRect> icon) {
    QQuickWindow* menu = make(View::menu);
    if (menu == nullptr) {
        return;
    }
    if (menu->isVisible()) {
        menu->close(); // a second click on the icon closes the menu
        return;
    }
    const QRect anchor = icon.value_or(QRect(QCursor::pos(), QSize()));
    QScreen* screen = QGuiApplication::screenAt(anchor.center());
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    menu->setPosition(popupPlace(anchor, menu->size(), screen->availableGeometry()));
    show(View::menu);
}

void Windows::showUpdateCheck(const QString& text, const QUrl& downloadPage) {
    if (QQuickWindow* result = make(View::updateCheck)) {
        result->setProperty("resultText", text);
        result->setProperty("downloadPage", downloadPage);
        show(View::updateCheck);
    }
}

} // namespace lumenvale
