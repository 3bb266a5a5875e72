#pragma once

#include "LumenvaleKit/Geometry.h"

#include <QRect>
#include <QRegion>
#include <QSize>
#include <QString>
#include <QVariantMap>
#include <memory>

class QQuickWindow;
class QWindow;

// What every floating panel around a recording shares (the control, the countdown,
// the outline, the notice, the selection pickers and the card): a frameless window
// above all others, on every workspace, that never takes the keyboard focus from the
// application being recorded and that no window manager moves or decorates
// (override-redirect). The X11 capture leaves this process's windows out, so none of
// them reaches a movie; the desktop portal on Wayland records what the display shows,
// so there the panels keep clear of what is recorded (PanelPlacement) or hide.
//
// Geometry: rectangles here are in desktop coordinates (points, origin bottom-left,
// y up), converted to Qt's top-left coordinates at the window boundary.
//
// Threads: the GUI thread.
namespace lumenvale {
class Windows;
}

namespace lumenvale::OverlayPanel {

enum class Mouse { accepted, ignored };

// Sets the window's kind; before it is first shown.
void configure(QWindow& window, Mouse mouse);

// A panel of the view qrc:/qml/<view>.qml (Windows::create), configured; nullptr when
// the view did not load (said on standard error).
std::unique_ptr<QQuickWindow> create(Windows& windows, const QString& view,
                                     const QVariantMap& properties, Mouse mouse);

// Moves and sizes the window onto `rect`, each edge rounded to a whole point.
void place(QWindow& window, const Rect& rect);

// Between Qt's global coordinates and desktop coordinates.
Rect fromQt(const QRectF& rect);
QRectF toQt(const Rect& rect);

// Shows only `region` of the window (in its own coordinates): where no compositor
// blends translucent windows, what lies outside a rounded shape would otherwise show
// black. An empty region shows the whole window.
void clip(QWindow& window, const QRegion& region);
// A rounded rectangle of `size` with corners of `radius`, as a window shape.
QRegion rounded(const QSize& size, double radius);

} // namespace lumenvale::OverlayPanel
