#include "gui/panels/Notice.h"

#include "desktop/Screens.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/panels/PanelPlacement.h"
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
    window_->setOpacity(1);
    if (!place()) {
        window_->hide();
        return;
    }
    window_->show();
    window_->raise();
    hideTimer_.start();
}

void Notice::keepClearOf(std::optional<Rect> recorded) {
    keepClearOf_ = recorded;
    if (window_ && window_->isVisible() && !place()) {
        hideTimer_.stop();
        fade_.stop();
        window_->hide();
    }
}

bool Notice::place() {
    const std::optional<Screen> screen = Screens::withMouse();
    if (screen) {
        const Rect& visible = screen->visibleFrame;
        const std::optional<Rect> frame =
            PanelPlacement::placed(Rect{visible.midX() - 240, visible.minY() + visible.height * 0.2,
                                        480, static_cast<double>(window_->height())},
                                   keepClearOf_);
        if (!frame) {
            return false;
        }
        OverlayPanel::place(*window_, *frame);
    } else if (keepClearOf_) {
        return false;
    }
    OverlayPanel::clip(
        *window_, OverlayPanel::rounded(window_->size(), std::min(window_->height() / 2.0, 22.0)));
    return true;
}

} // namespace lumenvale
