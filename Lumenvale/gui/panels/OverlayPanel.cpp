#include "gui/panels/OverlayPanel.h"

#include "desktop/Screens.h"
#include "gui/windows/Windows.h"

#include <QPainterPath>
#include <QPolygon>
#include <QQuickWindow>
#include <QWindow>
#include <cmath>

namespace lumenvale::OverlayPanel {

void configure(QWindow& window, Mouse mouse) {
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::WindowDoesNotAcceptFocus | Qt::X11BypassWindowManagerHint;
    if (mouse == Mouse::ignored) {
        flags |= Qt::WindowTransparentForInput;
    }
    window.setFlags(flags);
}

std::unique_ptr<QQuickWindow> create(Windows& windows, const QString& view,
                                     const QVariantMap& properties, Mouse mouse) {
    std::unique_ptr<QQuickWindow> window(windows.create(view, properties));
    if (window) {
        configure(*window, mouse);
    }
    return window;
}

QRectF toQt(const Rect& rect) {
    const Rect topLeft = Screens::toTopLeft(rect);
    return {topLeft.x, topLeft.y, topLeft.width, topLeft.height};
}

Rect fromQt(const QRectF& rect) {
    return Screens::fromTopLeft(Rect{rect.x(), rect.y(), rect.width(), rect.height()});
}

void place(QWindow& window, const Rect& rect) {
    window.setGeometry(toQt(rect).toRect());
}

void clip(QWindow& window, const QRegion& region) {
    window.setMask(region);
}

QRegion rounded(const QSize& size, double radius) {
    QPainterPath path;
    path.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), radius, radius);
    return QRegion(path.toFillPolygon().toPolygon());
}

} // namespace lumenvale::OverlayPanel
