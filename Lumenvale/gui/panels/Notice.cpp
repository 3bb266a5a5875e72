#include "gui/panels/Notice.h"

#include "desktop/Screens.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"

#include <QQuickWindow>

namespace lumenvale {

Notice::Notice(Windows& windows, QObject* parent) : QObject(parent), windows_(windows) {
    hideTimer_.setSingleShot(true);
    hideTimer_.setInterval(2500);
    fade_.setPropertyName("opacity");
    fade_.setDuration(300);
    fade_.setEndValue(0.0);
    connect(&hideTimer_, &QTimer::timeout, this, [this] {
        if (window_) {
            fade_.setTargetObject(window_.get());
            fade_.setStartValue(1.0);
            fade_.start();
        }
    });
    connect(&fade_, &QPropertyAnimation::finished, this, [this] {
        if (window_) {
            window_->hide();
        }
    });
}

Notice::~Notice() = default;

void Notice::show(const QString& text) {
    hideTimer_.stop();
    fade_.stop();
    text_ = text;
    emit textChanged();
    if (!window_) {
        window_ = OverlayPanel::create(windows_, QStringLiteral("NoticePanel"),
                                       {{QStringLiteral("notice"), QVariant::fromValue(this)}},
                                       OverlayPanel::Mouse::ignored);
        if (!window_) {
            return;
        }
    }
    const std::optional<Screen> screen = Screens::withMouse();
    if (screen) {
        const Rect& visible = screen->visibleFrame;
        const double height = window_->height();
        OverlayPanel::place(*window_, Rect{visible.midX() - 240,
                                           visible.minY() + visible.height * 0.2, 480, height});
    }
    OverlayPanel::clip(
        *window_, OverlayPanel::rounded(window_->size(), std::min(window_->height() / 2.0, 22.0)));
    window_->setOpacity(1);
    window_->show();
    window_->raise();
    hideTimer_.start();
}

} // namespace lumenvale
