#pragma once

#include <QCameraDevice>
#include <QObject>
#include <QString>
#include <memory>

class QCamera;
class QMediaCaptureSession;
class QMediaDevices;
class QVideoSink;

namespace lumenvale {

class SyntheticCamera;

// The camera's pictures, delivered into a video sink: the default video input through Qt
// Multimedia. With LUMENVALE_SYNTHETIC_CAMERA=1 in the environment (tests, on machines
// where no camera can exist) a synthetic camera stands in for it; without the variable
// the real camera is always the one used.
//
// Threads: the GUI thread.
class CameraFeed : public QObject {
    Q_OBJECT

  public:
    explicit CameraFeed(QObject* parent = nullptr);
    ~CameraFeed() override;

    // Whether start() would find a camera now (the default video input is a readable
    // V4L2 device, or the synthetic camera is asked for).
    static bool available();

    // Starts delivering pictures into `sink` (not owned; it must outlive the run, until
    // stop() or lost). False, with nothing started, when there is no camera. Starting
    // while running moves the feed to the new sink.
    bool start(QVideoSink& sink);
    void stop();
    bool running() const;

  signals:
    // The running camera failed or went away; the feed has stopped. `reason` is a
    // sentence for the user.
    void lost(const QString& reason);

  private:
    void fail(const QString& reason);
    void checkDevicePresent();

    std::unique_ptr<SyntheticCamera> synthetic_;
    std::unique_ptr<QMediaDevices> devices_;
    std::unique_ptr<QMediaCaptureSession> session_;
    std::unique_ptr<QCamera> camera_;
    QCameraDevice device_;
};

} // namespace lumenvale
