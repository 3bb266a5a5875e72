#include "recorder/ScreenRecorder.h"

#include "LumenvaleKit/Checked.h"
#include "LumenvaleKit/RecError.h"
#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "base/AppIdentity.h"
#include "base/Store.h"
#include "desktop/Desktop.h"
#include "desktop/FinishSound.h"
#include "desktop/Permissions.h"
#include "desktop/Screens.h"
#include "recorder/RecorderLaunch.h"
#include "recorder/RecorderUi.h"

#include <QStringList>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace lumenvale {

namespace {

Rect intersection(const Rect& a, const Rect& b) {
    const double minX = std::max(a.minX(), b.minX());
    const double minY = std::max(a.minY(), b.minY());
    const double maxX = std::min(a.maxX(), b.maxX());
    const double maxY = std::min(a.maxY(), b.maxY());
    if (maxX <= minX || maxY <= minY) {
        return Rect{minX, minY, 0, 0};
    }
    return Rect{minX, minY, maxX - minX, maxY - minY};
}

// Why no display was found for what is to be recorded.
QString noDisplayFor(RecordKind kind) {
    if (kind == RecordKind::screen || Screens::all().empty()) {
        return QString::fromUtf8(message(RecError::displayGone));
    }
    return kind == RecordKind::area ? QStringLiteral("The area lies outside every screen.")
                                    : QStringLiteral("The window lies outside every screen.");
}

double secondsSince(const QDateTime& moment) {
    return static_cast<double>(moment.msecsTo(QDateTime::currentDateTimeUtc())) / 1000.0;
}

} // namespace

ScreenRecorder::ScreenRecorder(QObject* parent)
    : QObject(parent), options_(Store::loadOptions()), finishSound_(&FinishSound::play) {
    workers_.setMaxThreadCount(1);
    workers_.setObjectName(QString::fromLatin1(applicationID) + QStringLiteral(".recorder"));
}

ScreenRecorder::~ScreenRecorder() {
    if (stream_) {
        stream_->stop();
    }
    workers_.waitForDone();
}

ScreenRecorder& ScreenRecorder::shared() {
    static ScreenRecorder* const instance = new ScreenRecorder;
    return *instance;
}

void ScreenRecorder::setUi(RecorderUi* ui) {
    ui_ = ui ? ui : &nullUi_;
}

void ScreenRecorder::setOptions(const RecordingOptions& options) {
    const bool changed = !(options == options_);
    options_ = options;
    Store::save(options_);
    if (changed) {
        emit optionsChanged();
    }
}

void ScreenRecorder::setRunOptions(std::optional<RecordingOptions> options,
                                   SaveFolder::FolderOrigin folderOrigin) {
    runOptions_ = std::move(options);
    runFolderOrigin_ = folderOrigin;
}

const RecordingOptions& ScreenRecorder::optionsInForce() const {
    return runOptions_ ? *runOptions_ : options_;
}

double ScreenRecorder::elapsedSeconds() const {
    return accumulated_ + (resumedAt_.isValid() ? secondsSince(resumedAt_) : 0.0);
}

void ScreenRecorder::setFinishSound(std::function<void()> play) {
    finishSound_ = std::move(play);
}

// MARK: phase and observed state

void ScreenRecorder::enter(RecorderPhase::Event event) {
    const std::optional<Phase> to = RecorderPhase::next(phase_, event);
    if (!to) {
        // A transition outside the table is a programming error.
        std::fprintf(stderr, "ScreenRecorder: event %s in phase %s\n",
                     RecorderPhase::name(event).data(), RecorderPhase::name(phase_).data());
        std::abort();
    }
    setPhase(*to);
}

void ScreenRecorder::setPhase(Phase phase) {
    if (phase != phase_) {
        phase_ = phase;
        emit phaseChanged(phase_);
    }
}

void ScreenRecorder::setAccumulated(double seconds, QDateTime resumedAt) {
    if (seconds == accumulated_ && resumedAt == resumedAt_) {
        return;
    }
    accumulated_ = seconds;
    resumedAt_ = std::move(resumedAt);
    emit elapsedChanged();
}

void ScreenRecorder::setLast(Recording recording) {
    last_ = std::move(recording);
    emit lastChanged();
}

void ScreenRecorder::notice(const QString& text) {
    ui_->showNotice(text);
    emit noticeShown(text);
}

void ScreenRecorder::preview(Phase phase, double elapsedSeconds) {
    setPhase(phase);
    setAccumulated(elapsedSeconds, QDateTime());
}

// MARK: start

void ScreenRecorder::record(RecordKind kind) {
    // Asynchronous, as a menu action or hotkey expects: the caller returns first.
    QTimer::singleShot(0, this, [this, kind] { start(kind); });
}

bool ScreenRecorder::isCurrent(const Launch& launch) const {
    return launch.session == session_;
}

void ScreenRecorder::start(RecordKind kind, std::optional<Selection> selection,
                           std::function<void(bool)> done) {
    const bool picked = phase_ == Phase::selecting && selection.has_value();
    if (phase_ != Phase::idle && !picked) {
        if (done) {
            done(false);
        }
        return;
    }
    auto launch = std::make_shared<Launch>();
    launch->done = std::move(done);
    launch->kind = kind;
    launch->options = optionsInForce();

    session_ = checkedIncrement(session_, "recording session");
    launch->session = session_;

    if (!Permissions::shared().requestScreen()) {
        enter(RecorderPhase::Event::startAbandoned);
        ui_->screenPermissionRefused();
        launch->answer(false);
        return;
    }

    // On Wayland the desktop's own dialog picks the window, before the countdown.
    const bool desktopPicks = kind == RecordKind::window && !selection &&
                              Desktop::windowPicking() == Desktop::WindowPicking::desktopDialog;
    if (kind != RecordKind::screen && !selection && !desktopPicks) {
        enter(RecorderPhase::Event::selectionOpened);
        ui_->openSelection(kind == RecordKind::area ? RecorderUi::SelectionMode::area
                                                    : RecorderUi::SelectionMode::window);
        launch->answer(false);
        return;
    }

    const bool wholeScreen = kind == RecordKind::screen || desktopPicks;
    const std::optional<Screen> screen =
        wholeScreen ? Screens::withMouse() : Screens::containing(selection->rect);
    if (!screen) {
        abandonStart(launch);
        notice(QStringLiteral("Couldn’t start recording. ") + noDisplayFor(kind));
        return;
    }
    launch->screen = *screen;
    launch->rect = wholeScreen ? screen->frame : intersection(selection->rect, screen->frame);
    if (kind == RecordKind::area) {
        launch->area = launch->rect;
    } else if (kind == RecordKind::window && selection) {
        launch->windowID = selection->windowID;
    }
    if (desktopPicks) {
        try {
            launch->pickedWindow = pickWindow(launch->options);
        } catch (const std::exception& error) {
            abandonStart(launch);
            notice(QStringLiteral("Couldn’t start recording. ") + QString::fromUtf8(error.what()));
            return;
        }
    }

    // Refusals the user can lift in Settings are collected in `warnings`; a missing
    // sound server or microphone is said as it is, since no setting brings it back.
    QStringList warnings;
    QString missingDevices;
    if (launch->options.microphone) {
        launch->mic = Permissions::shared().request(Permissions::Kind::microphone);
        if (!launch->mic) {
            const std::optional<std::string> problem =
                AudioDevices::microphoneProblem(AudioDevices::query());
            if (problem) {
                missingDevices = QStringLiteral("Recording without the microphone. ") +
                                 QString::fromStdString(*problem);
            } else {
                warnings << QStringLiteral("Recording without the microphone.");
            }
        }
    }
    bool camera = false;
    if (launch->options.camera) {
        camera = Permissions::shared().request(Permissions::Kind::camera);
        if (!camera) {
            warnings << QStringLiteral("Recording without the camera.");
        }
    }
    if (!warnings.isEmpty()) {
        warnings.last() += QStringLiteral(" Allow it in Settings.");
    }
    if (!missingDevices.isEmpty()) {
        warnings.prepend(missingDevices);
    }
    if (!warnings.isEmpty()) {
        notice(warnings.join(QLatin1Char(' ')));
    }

    if (camera) {
        ui_->showBubble(launch->rect, [this, launch] {
            if (!isCurrent(*launch)) {
                launch->answer(false);
                return;
            }
            continueStart(launch);
        });
        return;
    }
    continueStart(launch);
}

void ScreenRecorder::continueStart(std::shared_ptr<Launch> launch) {
    if (launch->area) {
        ui_->showOutline(*launch->area);
    }
    ui_->prepareControl(launch->screen, launch->pickedWindow ? RecorderUi::Backdrop::windowAlone
                                                             : RecorderUi::Backdrop::desktop);
    if (!launch->options.countdown) {
        afterCountdown(std::move(launch));
        return;
    }
    enter(RecorderPhase::Event::countdownBegan);
    ui_->runCountdown(launch->screen, [this, launch](bool completed) {
        if (!isCurrent(*launch) || phase_ != Phase::countdown) {
            // stop() already ended this start and hid the panels.
            launch->answer(false);
            return;
        }
        if (!completed) {
            ui_->hidePanels();
            abandonStart(launch);
            return;
        }
        afterCountdown(launch);
    });
}

void ScreenRecorder::afterCountdown(std::shared_ptr<Launch> launch) {
    Started started;
    try {
        started = makeStream(*launch);
    } catch (const std::exception& error) {
        ui_->hidePanels();
        abandonStart(launch);
        notice(QStringLiteral("Couldn’t start recording. ") + QString::fromUtf8(error.what()));
        return;
    }
    stream_ = std::move(started.stream);
    streamID_ = started.streamID;
    output_ = started.url;
    segments_.clear();
    pending_.clear();
    finished_.clear();
    setAccumulated(0, QDateTime::currentDateTimeUtc());
    ui_->showControl();
    enter(RecorderPhase::Event::streamStarted);
    launch->answer(true);
}

void ScreenRecorder::abandonStart(const std::shared_ptr<Launch>& launch) {
    enter(RecorderPhase::Event::startAbandoned);
    launch->answer(false);
}

void ScreenRecorder::selectionCancelled() {
    if (phase_ == Phase::selecting) {
        enter(RecorderPhase::Event::startAbandoned);
    }
}

// MARK: pause, resume, stop

void ScreenRecorder::pause() {
    if (phase_ != Phase::recording || !stream_ || !output_) {
        return;
    }
    setAccumulated(elapsedSeconds(), QDateTime());
    enter(RecorderPhase::Event::paused);
    pending_.push_back(*output_);
    segments_.push_back(*output_);
    output_.reset();
    // The part's file is finalised in the background; its report reaches
    // outputDidFinish. The capture keeps running.
    stream_->pause();
}

void ScreenRecorder::resume() {
    if (phase_ != Phase::paused || !stream_) {
        return;
    }
    try {
        output_ = stream_->resume();
    } catch (const std::exception& error) {
        notice(QStringLiteral("Couldn’t resume. ") + QString::fromUtf8(error.what()));
        return;
    }
    setAccumulated(accumulated_, QDateTime::currentDateTimeUtc());
    enter(RecorderPhase::Event::resumed);
}

void ScreenRecorder::stop() {
    switch (phase_) {
    case Phase::idle:
    case Phase::finishing:
        return;
    case Phase::selecting:
        session_ = checkedIncrement(session_, "recording session");
        enter(RecorderPhase::Event::startAbandoned);
        ui_->closeSelection();
        return;
    case Phase::countdown:
        session_ = checkedIncrement(session_, "recording session");
        ui_->cancelCountdown();
        ui_->hidePanels();
        enter(RecorderPhase::Event::startAbandoned);
        return;
    case Phase::recording:
    case Phase::paused:
        finish();
        return;
    }
}

void ScreenRecorder::streamDidStop(std::uint64_t streamID, const QString& reason) {
    if (!stream_ || streamID != streamID_ ||
        (phase_ != Phase::recording && phase_ != Phase::paused)) {
        return;
    }
    notice(QStringLiteral("Recording stopped. ") + reason);
    emit stoppedByItself(reason);
    stop();
}

} // namespace lumenvale
