#include "desktop/Permissions.h"

#include "LumenvaleMedia/AudioDevices.h"
#include "desktop/Screens.h"

#include <QDir>
#include <QFileInfo>

namespace lumenvale {

namespace {

// A V4L2 device node the user may open ("/dev/video0", ...).
bool cameraDeviceReadable() {
    const QDir devices(QStringLiteral("/dev"));
    const QStringList nodes = devices.entryList({QStringLiteral("video*")}, QDir::System);
    for (const QString& node : nodes) {
        if (QFileInfo(devices.filePath(node)).isReadable()) {
            return true;
        }
    }
    return false;
}

} // namespace

Permissions& Permissions::shared() {
    static Permissions* const instance = new Permissions;
    return *instance;
}

bool Permissions::check(Kind kind) {
    switch (kind) {
    case Kind::screen:
        return Screens::captureAvailable();
    case Kind::microphone:
        return AudioDevices::microphoneAvailable(AudioDevices::query());
    case Kind::camera:
        return syntheticCamera() || cameraDeviceReadable();
    }
    return false;
}

bool Permissions::syntheticCamera() {
    return qEnvironmentVariable("LUMENVALE_SYNTHETIC_CAMERA") == QStringLiteral("1");
}

void Permissions::refresh() {
    QSet<Kind> now;
    for (Kind kind : {Kind::screen, Kind::microphone, Kind::camera}) {
        if (check(kind)) {
            now.insert(kind);
        }
    }
    if (now != granted_) {
        granted_ = now;
        emit grantedChanged();
    }
    schedule();
}

std::chrono::milliseconds Permissions::pollingInterval() const {
    return timer_.isActive() ? timer_.intervalAsDuration() : std::chrono::milliseconds(0);
}

void Permissions::schedule() {
    using namespace std::chrono_literals;
    const auto wanted = shown_ && granted_.size() < 3 ? 1'500ms : 20'000ms;
    if (timer_.isActive() && timer_.intervalAsDuration() == wanted) {
        return;
    }
    if (!timer_.isActive()) {
        // A coarse timer may fire a few percent late, which lets the system batch wake-ups.
        timer_.setTimerType(Qt::CoarseTimer);
        connect(&timer_, &QTimer::timeout, this, &Permissions::refresh, Qt::UniqueConnection);
    }
    timer_.start(wanted);
}

void Permissions::setShown(bool shown) {
    if (shown == shown_) {
        return;
    }
    shown_ = shown;
    if (timer_.isActive()) {
        schedule();
    }
}

void Permissions::update(Kind kind, bool held) {
    if (held == granted_.contains(kind)) {
        return;
    }
    if (held) {
        granted_.insert(kind);
    } else {
        granted_.remove(kind);
    }
    emit grantedChanged();
}

bool Permissions::requestScreen() {
    const bool held = check(Kind::screen);
    update(Kind::screen, held);
    return held;
}

bool Permissions::request(Kind kind) {
    const bool held = check(kind);
    update(kind, held);
    return held;
}

} // namespace lumenvale
