#include "gui/panels/RecordingPanels.h"

#include "desktop/Desktop.h"
#include "desktop/Screens.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"
#include "recorder/ScreenRecorder.h"

#include <QQuickWindow>

namespace lumenvale {

namespace {

constexpr double outlineMargin = 4; // points outside the recorded area

} // namespace

RecordingPanels::RecordingPanels(ScreenRecorder& recorder, Windows& windows, HotkeyCenter* hotkeys,
                                 std::function<void(const QUrl&)> openEditor, QObject* parent)
    : QObject(parent), recorder_(recorder), windows_(windows), notice_(windows),
      overlay_(windows, hotkeys), countdown_(windows, hotkeys), control_(recorder, windows),
      card_(
          windows, [this](const QString& text) { notice_.show(text); }, std::move(openEditor)),
      bubble_(windows.engine()) {
    connect(&bubble_, &CameraBubble::noticeShown, &notice_, &Notice::show);
}

RecordingPanels::~RecordingPanels() = default;

void RecordingPanels::openSelection(SelectionMode mode) {
    const RecordKind kind = mode == SelectionMode::area ? RecordKind::area : RecordKind::window;
    overlay_.open(mode, [this, kind](std::optional<Selection> selection) {
        if (selection) {
            recorder_.start(kind, selection);
        } else {
            recorder_.selectionCancelled();
        }
    });
}

void RecordingPanels::closeSelection() {
    overlay_.close();
}

void RecordingPanels::runCountdown(const Screen& screen, std::function<void(bool)> done) {
    countdown_.run(screen, std::move(done));
}

void RecordingPanels::cancelCountdown() {
    countdown_.cancel();
}

void RecordingPanels::showBubble(const Rect& rect, std::function<void()> shown) {
    bubble_.show(rect, std::move(shown));
}

std::optional<std::uint32_t> RecordingPanels::visibleBubbleWindow() const {
    return bubble_.windowID();
}

void RecordingPanels::showOutline(const Rect& area) {
    // The outline lies outside the area, so out of the movie even where it is recorded.
    if (Desktop::ownWindowsInCapture() == Desktop::OwnWindows::recorded) {
        recorded_ = area;
        notice_.keepClearOf(recorded_);
    }
    if (!outline_) {
        outline_ = OverlayPanel::create(windows_, QStringLiteral("OutlinePanel"), {},
                                        OverlayPanel::Mouse::ignored);
        if (!outline_) {
            return;
        }
    }
    const Rect frame{area.x - outlineMargin, area.y - outlineMargin, area.width + 2 * outlineMargin,
                     area.height + 2 * outlineMargin};
    OverlayPanel::place(*outline_, frame);
    // Only the ring between the area and the panel's edge: the area itself stays
    // untouched, with or without a compositor.
    const QRect whole(QPoint(0, 0), outline_->size());
    const int margin = static_cast<int>(outlineMargin);
    OverlayPanel::clip(*outline_,
                       QRegion(whole).subtracted(whole.adjusted(margin, margin, -margin, -margin)));
    outline_->show();
    outline_->raise();
}

void RecordingPanels::prepareControl(const Screen& screen, Backdrop backdrop) {
    if (Desktop::ownWindowsInCapture() == Desktop::OwnWindows::recorded &&
        backdrop == Backdrop::desktop) {
        if (!recorded_) {
            recorded_ = screen.frame;
            notice_.keepClearOf(recorded_);
        }
        // The last movie's card would be recorded too; the movie stays a click away
        // (Edit Last Recording…).
        card_.close();
    }
    control_.prepare(screen, recorded_);
}

void RecordingPanels::showControl() {
    control_.show();
}

void RecordingPanels::hidePanels() {
    control_.hide();
    countdown_.cancel();
    bubble_.hide();
    if (outline_) {
        outline_->hide();
    }
    recorded_.reset();
    notice_.keepClearOf(std::nullopt);
}

void RecordingPanels::showNotice(const QString& text) {
    notice_.show(text);
}

void RecordingPanels::showCard(const Recording& recording) {
    card_.show(recording);
}

void RecordingPanels::screenPermissionRefused() {
    const std::optional<std::string> problem = Screens::captureProblem();
    notice_.show(QStringLiteral("Lumenvale can’t record this screen. ") +
                 QString::fromStdString(problem.value_or("The display doesn’t allow it.")));
}

} // namespace lumenvale
