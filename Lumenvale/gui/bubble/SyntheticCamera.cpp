#include "gui/bubble/SyntheticCamera.h"

#include <QImage>
#include <QPainter>
#include <QVideoFrame>
#include <QVideoFrameFormat>
#include <QVideoSink>
#include <cstdio>

namespace lumenvale {

SyntheticCamera::SyntheticCamera(QObject* parent) : QObject(parent) {
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(1000 / 30);
    connect(&timer_, &QTimer::timeout, this, &SyntheticCamera::deliver);
    unplug_.setSingleShot(true);
    connect(&unplug_, &QTimer::timeout, this, [this] {
        stop();
        emit unplugged();
    });
}

void SyntheticCamera::start(QVideoSink& sink) {
    sink_ = &sink;
    deliver();
    timer_.start();
    bool given = false;
    const int unplugSeconds =
        qEnvironmentVariableIntValue("LUMENVALE_SYNTHETIC_CAMERA_UNPLUG", &given);
    if (given && unplugSeconds >= 0) {
        unplug_.start(unplugSeconds * 1000);
    }
}

void SyntheticCamera::stop() {
    unplug_.stop();
    timer_.stop();
    sink_.clear();
}

void SyntheticCamera::deliver() {
    if (sink_.isNull()) {
        timer_.stop();
        return;
    }
    QVideoFrame frame(QVideoFrameFormat(QSize(width, height), QVideoFrameFormat::Format_RGBX8888));
    if (!frame.map(QVideoFrame::WriteOnly)) {
        // Only a broken build of Qt Multimedia refuses to map its own memory frame.
        std::fprintf(stderr, "Lumenvale: the synthetic camera could not write a picture.\n");
        timer_.stop();
        return;
    }
    {
        QImage picture(frame.bits(0), width, height, frame.bytesPerLine(0),
                       QImage::Format_RGBX8888);
        QPainter painter(&picture);
        const int halfWidth = width / 2;
        const int halfHeight = height / 2;
        painter.fillRect(0, 0, halfWidth, halfHeight, Qt::red);
        painter.fillRect(halfWidth, 0, halfWidth, halfHeight, Qt::green);
        painter.fillRect(0, halfHeight, halfWidth, halfHeight, Qt::blue);
        painter.fillRect(halfWidth, halfHeight, halfWidth, halfHeight, Qt::yellow);
        // The bar crosses the picture in two seconds, so a still picture is easy to tell.
        constexpr int barWidth = 16;
        const int barX = (picture_ * width / 60) % width;
        painter.fillRect(barX, 0, barWidth, height, Qt::white);
    }
    frame.unmap();
    ++picture_;
    sink_->setVideoFrame(frame);
}

} // namespace lumenvale
