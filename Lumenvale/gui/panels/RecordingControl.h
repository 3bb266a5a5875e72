#pragma once

#include "desktop/Screens.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>
#include <optional>

class QQuickWindow;

namespace lumenvale {

class ScreenRecorder;
class Windows;

// The floating control of a running recording (ControlPanel.qml): the elapsed time,
// Pause/Resume and Stop, centred at the top of the recorded display, 8 points under
// its top edge; the user may drag it anywhere by its dot. It is made before the
// capture starts and shown once it runs. Where the capture records it too (Wayland),
// it keeps clear of what is recorded (PanelPlacement), or stays hidden; the tray
// menu's header still stops the recording.
//
// Threads: the GUI thread.
class RecordingControl : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool paused READ paused NOTIFY changed)
    Q_PROPERTY(QString elapsedText READ elapsedText NOTIFY changed)

  public:
    RecordingControl(ScreenRecorder& recorder, Windows& windows, QObject* parent = nullptr);
    ~RecordingControl() override;

    // Makes the panel for `screen`, placed but not shown yet; with `keepClearOf`, never
    // over that rectangle (desktop coordinates).
    void prepare(const Screen& screen, std::optional<Rect> keepClearOf);
    // Places it again and shows it.
    void show();
    void hide();

    bool paused() const;
    QString elapsedText() const;

    Q_INVOKABLE void pause();
    Q_INVOKABLE void resume();
    Q_INVOKABLE void stop();

  signals:
    void changed();

  private:
    // Places the panel; false when it has no place clear of `keepClearOf_`.
    bool placeOn(const Screen& screen);

    ScreenRecorder& recorder_;
    Windows& windows_;
    std::unique_ptr<QQuickWindow> window_;
    Screen screen_;
    std::optional<Rect> keepClearOf_;
    QTimer tick_;
};

} // namespace lumenvale
