// The end of a recording: stopping the capture, waiting for every part to be
// complete, and saving the movie off the GUI thread.

#include "LumenvaleKit/Checked.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "base/AppIdentity.h"
#include "base/LocalTime.h"
#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "recorder/RecorderUi.h"
#include "recorder/ScreenRecorder.h"

#include <QThread>
#include <QTimer>
#include <memory>

namespace lumenvale {

namespace {

// How long a finish waits for a part that does not report its end.
constexpr int finishWaitMilliseconds = 5000;

void nameWorkerThread() {
    QThread::currentThread()->setObjectName(QString::fromLatin1(applicationID) +
                                            QStringLiteral(".recorder"));
}

} // namespace

void ScreenRecorder::finish() {
    session_ = checkedIncrement(session_, "recording session");
    const std::int64_t finishSession = session_;
    enter(RecorderPhase::Event::finishBegan);
    if (resumedAt_.isValid()) {
        setAccumulated(elapsedSeconds(), QDateTime());
    }
    if (output_) {
        pending_.push_back(*output_);
        segments_.push_back(*output_);
        output_.reset();
    }
    ui_->hidePanels();
    if (!stream_) {
        afterStreamStopped(finishSession);
        return;
    }
    // Stopping flushes the encoders and closes the last part; it blocks, so it runs
    // on the worker. Its part reports are queued before the answer below, so they
    // reach outputDidFinish first.
    // The parts stay locked until the save has removed them, so that recovery in
    // another process never takes them meanwhile.
    std::shared_ptr<RecordingPipeline> stream(stream_.release());
    workers_.start([this, stream, finishSession] {
        nameWorkerThread();
        stream->stop();
        auto locks = std::make_shared<std::vector<PartLock>>(stream->takePartLocks());
        QMetaObject::invokeMethod(
            this,
            [this, finishSession, locks] {
                partLocks_ = locks;
                afterStreamStopped(finishSession);
            },
            Qt::QueuedConnection);
    });
}

void ScreenRecorder::afterStreamStopped(std::int64_t finishSession) {
    if (finishSession != session_) {
        return;
    }
    waitForPending(finishSession, 0);
}

void ScreenRecorder::waitForPending(std::int64_t finishSession, std::size_t index) {
    if (index < pending_.size()) {
        waitForFinish(pending_[index], [this, finishSession, index] {
            if (finishSession == session_) {
                waitForPending(finishSession, index + 1);
            }
        });
        return;
    }
    pending_.clear();
    finished_.clear();
    streamID_ = 0;
    save(finishSession);
}

void ScreenRecorder::save(std::int64_t finishSession) {
    const std::filesystem::path folder = saveFolder();
    const std::vector<std::filesystem::path> parts = std::move(segments_);
    segments_.clear();
    const LocalDateTime date = localDateTime(QDateTime::currentDateTime());
    workers_.start([this, finishSession, parts, folder, date, locks = std::move(partLocks_)] {
        nameWorkerThread();
        std::optional<Recording> recording;
        QString failure;
        try {
            recording = RecordingFiles::save(parts, folder, date);
        } catch (const std::exception& error) {
            failure = QString::fromUtf8(error.what());
        }
        if (locks) {
            locks->clear(); // the parts are gone, or kept for recovery after a failure
        }
        QMetaObject::invokeMethod(
            this,
            [this, finishSession, recording = std::move(recording), failure] {
                if (finishSession == session_) {
                    endFinish(recording, failure);
                }
            },
            Qt::QueuedConnection);
    });
}

void ScreenRecorder::endFinish(std::optional<Recording> recording, const QString& failure) {
    if (recording) {
        setLast(*recording);
        ui_->showCard(*recording);
        if (finishSound_) {
            finishSound_();
        }
    } else {
        notice(QStringLiteral("Couldn’t save the recording. ") + failure);
    }
    enter(RecorderPhase::Event::finishEnded);
    emit finishEnded(recording);
}

std::filesystem::path ScreenRecorder::saveFolder() const {
    return runOptions_ ? SaveFolder::resolve(*runOptions_, runFolderOrigin_)
                       : SaveFolder::resolve(options_);
}

// MARK: waiting for parts

void ScreenRecorder::waitForFinish(const std::filesystem::path& part, std::function<void()> done) {
    if (finished_.erase(part) > 0) {
        done();
        return;
    }
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, part] {
        const auto waiter = waiters_.find(part);
        if (waiter == waiters_.end()) {
            return;
        }
        Waiter ended = std::move(waiter->second);
        waiters_.erase(waiter);
        ended.timer->deleteLater();
        ended.done(); // the wait ends without the report
    });
    waiters_[part] = Waiter{std::move(done), timer};
    timer->start(finishWaitMilliseconds);
}

void ScreenRecorder::outputDidFinish(const std::filesystem::path& part) {
    const auto waiter = waiters_.find(part);
    if (waiter == waiters_.end()) {
        finished_.insert(part);
        return;
    }
    Waiter ended = std::move(waiter->second);
    waiters_.erase(waiter);
    ended.timer->stop();
    ended.timer->deleteLater();
    ended.done();
}

} // namespace lumenvale
