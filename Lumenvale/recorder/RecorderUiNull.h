#pragma once

#include "recorder/RecorderUi.h"

namespace lumenvale {

class ScreenRecorder;

// Shows nothing: what a recorder without a UI of its own shows (tests, headless runs),
// so the recorder never has to ask whether there is one. With nothing to pick with,
// an area or window selection is cancelled at once; the countdown runs out at once;
// the camera bubble counts as shown at once and is never in the video. Every answer
// comes before the call returns. GUI thread.
class RecorderUiNull final : public RecorderUi {
  public:
    // `recorder` hears of the cancelled selections; it must outlive this UI.
    explicit RecorderUiNull(ScreenRecorder& recorder) : recorder_(recorder) {}

    void openSelection(SelectionMode mode) override;
    void closeSelection() override {}
    void runCountdown(const Screen&, std::function<void(bool completed)> done) override {
        done(true);
    }
    void cancelCountdown() override {}
    void showBubble(const Rect&, std::function<void()> shown) override { shown(); }
    std::optional<std::uint32_t> visibleBubbleWindow() const override { return std::nullopt; }
    void showOutline(const Rect&) override {}
    void prepareControl(const Screen&, Backdrop) override {}
    void showControl() override {}
    void hidePanels() override {}
    void showNotice(const QString&) override {}
    void showCard(const Recording&) override {}
    void screenPermissionRefused() override {}

  private:
    ScreenRecorder& recorder_;
};

} // namespace lumenvale
