#pragma once

#include "gui/bubble/CameraBubble.h"
#include "gui/card/RecordingCard.h"
#include "gui/panels/Notice.h"
#include "gui/panels/RecordingControl.h"
#include "gui/panels/RecordingCountdown.h"
#include "gui/panels/SelectionOverlay.h"
#include "recorder/RecorderUi.h"

#include <QObject>
#include <memory>
#include <optional>

class QQuickWindow;

namespace lumenvale {

class HotkeyCenter;
class ScreenRecorder;
class Windows;

// What the tray application shows around a recording: the selection picker, the
// countdown, the floating control, the dashed outline of an area, the camera bubble,
// notices and the card of the finished movie. The recorder decides when (RecorderUi); each panel
// decides how it looks.
//
// Threads: the GUI thread.
class RecordingPanels : public QObject, public RecorderUi {
    Q_OBJECT

  public:
    // `hotkeys` lends Escape to the picker and the countdown (nullptr: Escape is not
    // caught); `openEditor` opens a movie in the editor (the card's Edit).
    RecordingPanels(ScreenRecorder& recorder, Windows& windows, HotkeyCenter* hotkeys,
                    std::function<void(const QUrl&)> openEditor, QObject* parent = nullptr);
    ~RecordingPanels() override;

    void openSelection(SelectionMode mode) override;
    void closeSelection() override;
    void runCountdown(const Screen& screen, std::function<void(bool completed)> done) override;
    void cancelCountdown() override;
    void showBubble(const Rect& rect, std::function<void()> shown) override;
    std::optional<std::uint32_t> visibleBubbleWindow() const override;
    void showOutline(const Rect& area) override;
    void prepareControl(const Screen& screen, Backdrop backdrop) override;
    void showControl() override;
    void hidePanels() override;
    void showNotice(const QString& text) override;
    void showCard(const Recording& recording) override;
    void screenPermissionRefused() override;

  private:
    ScreenRecorder& recorder_;
    Windows& windows_;
    Notice notice_;
    SelectionOverlay overlay_;
    RecordingCountdown countdown_;
    RecordingControl control_;
    RecordingCard card_;
    CameraBubble bubble_;
    std::unique_ptr<QQuickWindow> outline_;
    // What the running (or starting) recording takes in, when its capture records
    // Lumenvale's windows too (Wayland): the panels keep clear of it, and the last
    // movie's card closes. From showOutline() or prepareControl() until hidePanels().
    std::optional<Rect> recorded_;
};

} // namespace lumenvale
