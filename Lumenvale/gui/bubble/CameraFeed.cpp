#include "gui/bubble/CameraFeed.h"

#include "desktop/Permissions.h"
#include "gui/bubble/SyntheticCamera.h"

#include <QCamera>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QVideoSink>

namespace lumenvale {

CameraFeed::CameraFeed(QObject* parent) : QObject(parent) {}

CameraFeed::~CameraFeed() {
    stop();
}

bool CameraFeed::available() {
    if (Permissions::syntheticCamera()) {
        return true;
    }
    return Permissions::check(Permissions::Kind::camera) &&
           !QMediaDevices::defaultVideoInput().isNull();
}

bool CameraFeed::start(QVideoSink& sink) {
    if (Permissions::syntheticCamera()) {
        if (!synthetic_) {
            synthetic_ = std::make_unique<SyntheticCamera>();
            connect(synthetic_.get(), &SyntheticCamera::unplugged, this,
                    [this] { emit lost(QStringLiteral("The camera was disconnected.")); });
        }
        synthetic_->start(sink);
        return true;
    }
    if (session_) {
        session_->setVideoSink(&sink);
        return true;
    }
    if (!available()) {
        return false;
    }
    device_ = QMediaDevices::defaultVideoInput();
    camera_ = std::make_unique<QCamera>(device_);
    session_ = std::make_unique<QMediaCaptureSession>();
    session_->setCamera(camera_.get());
    session_->setVideoSink(&sink);
    connect(camera_.get(), &QCamera::errorOccurred, this,
            [this](QCamera::Error error, const QString& text) {
                if (error != QCamera::NoError) {
                    fail(text.isEmpty()
                             ? QStringLiteral("The camera stopped working.")
                             : QStringLiteral("The camera stopped working: %1.")
                                   .arg(text.endsWith(QLatin1Char('.')) ? text.chopped(1) : text));
                }
            });
    devices_ = std::make_unique<QMediaDevices>();
    connect(devices_.get(), &QMediaDevices::videoInputsChanged, this,
            &CameraFeed::checkDevicePresent);
    camera_->start();
    return true;
}

void CameraFeed::stop() {
    if (synthetic_) {
        synthetic_->stop();
    }
    if (camera_) {
        camera_->stop();
    }
    // The session goes before the camera it refers to.
    session_.reset();
    camera_.reset();
    devices_.reset();
    device_ = {};
}

bool CameraFeed::running() const {
    return (synthetic_ && synthetic_->running()) || camera_ != nullptr;
}

void CameraFeed::checkDevicePresent() {
    if (device_.isNull()) {
        return;
    }
    for (const QCameraDevice& input : QMediaDevices::videoInputs()) {
        if (input.id() == device_.id()) {
            return;
        }
    }
    fail(QStringLiteral("The camera was disconnected."));
}

void CameraFeed::fail(const QString& reason) {
    // Called from the camera's own signals: its objects are let go now and deleted once
    // that call has returned.
    camera_->disconnect(this);
    devices_->disconnect(this);
    session_->setVideoSink(nullptr);
    session_->setCamera(nullptr);
    session_.release()->deleteLater();
    camera_.release()->deleteLater();
    devices_.release()->deleteLater();
    device_ = {};
    emit lost(reason);
}

} // namespace lumenvale
