#include "gui/tray/Tray.h"

#include "gui/tray/MenuModel.h"

#include <QAction>
#include <QIcon>
#include <QVariantMap>

namespace lumenvale {

namespace {

QIcon trayIcon(bool recording) {
    return QIcon(recording ? QStringLiteral(":/icons/tray-recording.svg")
                           : QStringLiteral(":/icons/tray-idle.svg"));
}

} // namespace

Tray::Tray(MenuModel& model, QObject* parent) : QObject(parent), model_(model) {
    icon_.setToolTip(QStringLiteral("Lumenvale"));
    connect(&model_, &MenuModel::linesChanged, this, &Tray::rebuildMenu);
    connect(&model_, &MenuModel::linesChanged, this, &Tray::showRecording);
    connect(&model_, &MenuModel::headerTextChanged, this, &Tray::rebuildMenu);
    connect(&icon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason why) {
                if (why == QSystemTrayIcon::Trigger) {
                    emit popupRequested();
                }
            });
    rebuildMenu();
    showRecording();
    icon_.setContextMenu(&menu_);
}

void Tray::show() {
    icon_.show();
}

std::optional<QRect> Tray::iconGeometry() const {
    const QRect geometry = icon_.geometry();
    if (geometry.isEmpty()) {
        return std::nullopt;
    }
    return geometry;
}

void Tray::notify(const QString& text) {
    icon_.showMessage(QStringLiteral("Lumenvale"), text);
}

void Tray::rebuildMenu() {
    menu_.clear();
    if (model_.headerVisible()) {
        // The header's time, as a disabled line above its Stop entry.
        menu_.addAction(model_.headerText())->setEnabled(false);
    }
    for (const QVariant& value : model_.lines()) {
        const QVariantMap line = value.toMap();
        if (line.value(QStringLiteral("divider")).toBool()) {
            menu_.addSeparator();
            continue;
        }
        QString title = line.value(QStringLiteral("title")).toString();
        const QString shortcut = line.value(QStringLiteral("shortcut")).toString();
        QAction* entry = menu_.addAction(
            QIcon::fromTheme(line.value(QStringLiteral("iconName")).toString()), title);
        if (!shortcut.isEmpty()) {
            // Shown, not bound: the global shortcut is held by the hotkeys.
            entry->setShortcut(QKeySequence(shortcut));
            entry->setShortcutContext(Qt::WidgetShortcut);
        }
        entry->setEnabled(line.value(QStringLiteral("enabled")).toBool());
        const QString row = line.value(QStringLiteral("row")).toString();
        connect(entry, &QAction::triggered, this, [this, row] { model_.choose(row); });
    }
}

void Tray::showRecording() {
    icon_.setIcon(trayIcon(model_.recording()));
}

} // namespace lumenvale
