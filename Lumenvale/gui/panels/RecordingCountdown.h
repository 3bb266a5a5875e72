#pragma once

#include "desktop/Screens.h"

#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

class QQuickWindow;

namespace lumenvale {

class HotkeyCenter;
class Windows;

// The 3-2-1 before a recording starts (CountdownPanel.qml), 200 × 200 in the middle
// of the display. Escape cancels it even while another application has the focus (the
// hotkey center lends Escape for as long as it counts).
//
// Threads: the GUI thread.
class RecordingCountdown : public QObject {
    Q_OBJECT
    Q_PROPERTY(int number READ number NOTIFY numberChanged)

  public:
    RecordingCountdown(Windows& windows, HotkeyCenter* hotkeys, QObject* parent = nullptr);
    ~RecordingCountdown() override;

    // Counts 3, 2, 1 a second each on `screen`; `done(true)` when it ran out,
    // `done(false)` when Escape cancelled it. A run already counting is cancelled first
    // (its `done` gets false).
    void run(const Screen& screen, std::function<void(bool completed)> done);
    // Ends the countdown without calling `done` (the recorder's stop).
    void cancel();

    int number() const { return number_; }

  signals:
    void numberChanged();

  private:
    void tick();
    // Hides the panel, gives Escape back and answers `completed` once.
    void end(bool completed);

    Windows& windows_;
    HotkeyCenter* hotkeys_;
    std::unique_ptr<QQuickWindow> window_;
    QTimer timer_;
    int number_ = 3;
    std::function<void(bool)> done_;
};

} // namespace lumenvale
