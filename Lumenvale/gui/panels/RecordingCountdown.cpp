#include "gui/panels/RecordingCountdown.h"

#include "desktop/Desktop.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"
#include "hotkeys/HotkeyCenter.h"

#include <QQuickWindow>
#include <chrono>

namespace lumenvale {

namespace {

// Enough for the display server to take the hidden window off the screen and the
// compositor to draw a frame without it.
constexpr std::chrono::milliseconds hiddenBeforeCapture{150};

} // namespace

RecordingCountdown::RecordingCountdown(Windows& windows, HotkeyCenter* hotkeys, QObject* parent)
    : QObject(parent), windows_(windows), hotkeys_(hotkeys) {
    timer_.setInterval(1000);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &RecordingCountdown::tick);
}

RecordingCountdown::~RecordingCountdown() = default;

void RecordingCountdown::run(const Screen& screen, std::function<void(bool completed)> done) {
    if (done_) {
        end(false);
    }
    if (!window_) {
        window_ = OverlayPanel::create(windows_, QStringLiteral("CountdownPanel"),
                                       {{QStringLiteral("countdown"), QVariant::fromValue(this)}},
                                       OverlayPanel::Mouse::ignored);
        if (!window_) {
            done(true); // a view that does not load must not keep the user from recording
            return;
        }
        OverlayPanel::clip(*window_, QRegion(20, 20, 160, 160, QRegion::Ellipse));
    }
    done_ = std::move(done);
    number_ = 3;
    emit numberChanged();
    const Rect& frame = screen.frame;
    OverlayPanel::place(*window_, Rect{frame.midX() - 100, frame.midY() - 100, 200, 200});
    window_->show();
    window_->raise();
    if (hotkeys_ != nullptr) {
        hotkeys_->grabEscape([this] { end(false); });
    }
    timer_.start();
}

void RecordingCountdown::cancel() {
    done_ = nullptr;
    end(false);
}

void RecordingCountdown::tick() {
    if (number_ <= 1) {
        end(true);
        return;
    }
    --number_;
    emit numberChanged();
}

void RecordingCountdown::end(bool completed) {
    timer_.stop();
    if (hotkeys_ != nullptr) {
        hotkeys_->releaseEscape();
    }
    if (window_) {
        window_->hide();
    }
    auto done = std::exchange(done_, nullptr);
    if (!done) {
        return;
    }
    if (completed && Desktop::ownWindowsInCapture() == Desktop::OwnWindows::recorded) {
        // The capture records whatever the display shows: it starts once the
        // compositor has drawn the display without the countdown.
        QTimer::singleShot(hiddenBeforeCapture, this, [done] { done(true); });
        return;
    }
    done(completed);
}

} // namespace lumenvale
