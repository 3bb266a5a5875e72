#include "gui/panels/RecordingControl.h"

#include "LumenvaleKit/Clock.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/panels/PanelPlacement.h"
#include "gui/windows/Windows.h"
#include "recorder/ScreenRecorder.h"

#include <QQuickWindow>
#include <cmath>

namespace lumenvale {

RecordingControl::RecordingControl(ScreenRecorder& recorder, Windows& windows, QObject* parent)
    : QObject(parent), recorder_(recorder), windows_(windows) {
    // Four times a second keeps the seconds shown exact to a quarter second.
    tick_.setInterval(250);
    connect(&tick_, &QTimer::timeout, this, &RecordingControl::changed);
    connect(&recorder_, &ScreenRecorder::phaseChanged, this, &RecordingControl::changed);
    connect(&recorder_, &ScreenRecorder::elapsedChanged, this, &RecordingControl::changed);
}

RecordingControl::~RecordingControl() = default;

bool RecordingControl::paused() const {
    return recorder_.phase() == ScreenRecorder::Phase::paused;
}

QString RecordingControl::elapsedText() const {
    return QString::fromStdString(Clock::text(recorder_.elapsedSeconds()));
}

void RecordingControl::pause() {
    recorder_.pause();
}
void RecordingControl::resume() {
    recorder_.resume();
}
void RecordingControl::stop() {
    recorder_.stop();
}

void RecordingControl::prepare(const Screen& screen, std::optional<Rect> keepClearOf) {
    if (!window_) {
        window_ = OverlayPanel::create(windows_, QStringLiteral("ControlPanel"),
                                       {{QStringLiteral("control"), QVariant::fromValue(this)}},
                                       OverlayPanel::Mouse::accepted);
        if (!window_) {
            return;
        }
        // "Pause" and "Resume" differ in width: the shape follows the size.
        connect(window_.get(), &QWindow::widthChanged, this, [this] {
            OverlayPanel::clip(*window_,
                               OverlayPanel::rounded(window_->size(), window_->height() / 2.0));
        });
    }
    screen_ = screen;
    keepClearOf_ = keepClearOf;
    emit changed();
    // Made and placed now, shown once the capture runs: where no compositor blends
    // windows, a transparent one would still show during the countdown.
    placeOn(screen);
}

void RecordingControl::show() {
    if (!window_) {
        return;
    }
    if (!placeOn(screen_)) {
        window_->hide();
        return;
    }
    window_->show();
    window_->raise();
    tick_.start();
}

void RecordingControl::hide() {
    tick_.stop();
    if (window_) {
        window_->hide();
    }
}

bool RecordingControl::placeOn(const Screen& screen) {
    const Rect& visible = screen.visibleFrame;
    const double width = window_->width();
    const double height = window_->height();
    const std::optional<Rect> frame = PanelPlacement::placed(
        Rect{std::round(visible.midX() - width / 2), visible.maxY() - height - 8, width, height},
        keepClearOf_);
    if (!frame) {
        return false;
    }
    OverlayPanel::place(*window_, *frame);
    OverlayPanel::clip(*window_, OverlayPanel::rounded(window_->size(), height / 2.0));
    return true;
}

} // namespace lumenvale
