#include "gui/windows/Theme.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>
#include <optional>

namespace lumenvale {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString portalSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearance = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");

// The appearance setting's value: 1 prefers dark, 2 prefers light, 0 has no preference.
std::optional<Theme::Scheme> schemeOf(const QVariant& value) {
    QVariant inner = value;
    while (inner.canConvert<QDBusVariant>() && inner.userType() == qMetaTypeId<QDBusVariant>()) {
        inner = inner.value<QDBusVariant>().variant();
    }
    switch (inner.toUInt()) {
    case 1:
        return Theme::Scheme::dark;
    case 2:
        return Theme::Scheme::light;
    default:
        return std::nullopt;
    }
}

std::optional<Theme::Scheme> portalScheme() {
    QDBusInterface settings(portalService, portalPath, portalSettings,
                            QDBusConnection::sessionBus());
    if (!settings.isValid()) {
        return std::nullopt;
    }
    settings.setTimeout(500);
    const QDBusReply<QDBusVariant> reply =
        settings.call(QStringLiteral("Read"), appearance, colorSchemeKey);
    if (!reply.isValid()) {
        return std::nullopt;
    }
    return schemeOf(reply.value().variant());
}

Theme::Scheme paletteScheme() {
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128
               ? Theme::Scheme::dark
               : Theme::Scheme::light;
}

QPalette darkPalette() {
    QPalette palette;
    const QColor window(0x2B, 0x2B, 0x2E);
    const QColor base(0x1E, 0x1E, 0x20);
    const QColor text(0xEC, 0xEC, 0xEE);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x3A, 0x3A, 0x3E));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xE4));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, window);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, QColor(0x9A, 0x9A, 0xA0));
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x86));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x86));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x86));
    return palette;
}

} // namespace

Theme::Theme(QObject* parent) : QObject(parent) {
    const QString forced = qEnvironmentVariable("LUMENVALE_COLOR_SCHEME");
    if (forced == QLatin1String("dark") || forced == QLatin1String("light")) {
        apply(forced == QLatin1String("dark") ? Scheme::dark : Scheme::light);
        return;
    }
    QDBusConnection::sessionBus().connect(
        portalService, portalPath, portalSettings, QStringLiteral("SettingChanged"), this,
        SLOT(portalSettingChanged(QString, QString, QDBusVariant)));
    apply(portalScheme().value_or(paletteScheme()));
}

void Theme::portalSettingChanged(const QString& group, const QString& key,
                                 const QDBusVariant& value) {
    if (group == appearance && key == colorSchemeKey) {
        apply(schemeOf(value.variant()).value_or(paletteScheme()));
    }
}

void Theme::apply(Scheme scheme) {
    if (applied_ && scheme == scheme_) {
        return;
    }
    applied_ = true;
    scheme_ = scheme;
    QGuiApplication::setPalette(dark() ? darkPalette() : QPalette());
    emit changed();
}

QColor Theme::window() const {
    return dark() ? QColor(0x2B, 0x2B, 0x2E) : QColor(0xF6, 0xF6, 0xF7);
}
QColor Theme::text() const {
    return dark() ? QColor(0xEC, 0xEC, 0xEE) : QColor(0x1D, 0x1D, 0x1F);
}
QColor Theme::secondaryText() const {
    return dark() ? QColor(0x9E, 0x9E, 0xA4) : QColor(0x6E, 0x6E, 0x73);
}
QColor Theme::accent() const {
    return QColor(0x35, 0x84, 0xE4);
}
QColor Theme::recording() const {
    return dark() ? QColor(0xFF, 0x5A, 0x52) : QColor(0xD7, 0x26, 0x1E);
}
QColor Theme::success() const {
    return dark() ? QColor(0x4C, 0xD9, 0x64) : QColor(0x1F, 0x9D, 0x3A);
}
QColor Theme::divider() const {
    return dark() ? QColor(0xFF, 0xFF, 0xFF, 0x26) : QColor(0x00, 0x00, 0x00, 0x1F);
}

} // namespace lumenvale
