#pragma once

#include "recorder/RecorderUi.h"

#include <QObject>
#include <QTimer>

namespace lumenvale {

class ScreenRecorder;

// What the command line shows around a recording: the countdown "3… 2… 1…" and the
// notices on standard error. There is no overlay, control, outline, bubble or card:
// selections come from the flags and the movie's path is printed by the command.
// GUI thread.
class TerminalUi final : public QObject, public RecorderUi {
    Q_OBJECT

  public:
    explicit TerminalUi(ScreenRecorder& recorder, QObject* parent = nullptr);

    void openSelection(SelectionMode mode) override;
    void closeSelection() override {}
    void runCountdown(const Screen& screen, std::function<void(bool completed)> done) override;
    void cancelCountdown() override;
    void showBubble(const Rect& rect, std::function<void()> shown) override;
    std::optional<std::uint32_t> visibleBubbleWindow() const override { return std::nullopt; }
    void showOutline(const Rect&) override {}
    void prepareControl(const Screen&, Backdrop) override {}
    void showControl() override;
    void hidePanels() override;
    void showNotice(const QString& text) override;
    void showCard(const Recording&) override {}
    void screenPermissionRefused() override;

  private:
    void tick();

    ScreenRecorder& recorder_;
    QTimer countdownTimer_;
    int countdownLeft_ = 0;
    std::function<void(bool)> countdownDone_;
};

} // namespace lumenvale
