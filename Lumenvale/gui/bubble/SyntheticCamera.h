#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>

class QVideoSink;

namespace lumenvale {

// A stand-in camera for machines where no camera can exist (tests): 30 pictures a second
// of four coloured quadrants (red top-left, green top-right, blue bottom-left, yellow
// bottom-right, as the camera sees them) with a white bar moving across, pushed into a
// video sink as a camera's frames would be. With LUMENVALE_SYNTHETIC_CAMERA_UNPLUG=N it
// is unplugged N seconds after it starts, as a camera pulled out would be.
//
// Threads: the GUI thread.
class SyntheticCamera : public QObject {
    Q_OBJECT

  public:
    static constexpr int width = 640;
    static constexpr int height = 480;

    explicit SyntheticCamera(QObject* parent = nullptr);

    // Pushes pictures into `sink` until stop() or the sink's destruction.
    void start(QVideoSink& sink);
    void stop();
    bool running() const { return timer_.isActive(); }

  signals:
    // It stopped as an unplugged camera does.
    void unplugged();

  private:
    void deliver();

    QTimer timer_;
    QTimer unplug_;
    QPointer<QVideoSink> sink_;
    int picture_ = 0;
};

} // namespace lumenvale
