// The editor model's exports: naming, running off the GUI thread, progress, the
// card, and the rules that keep an overtaken export from touching the model.

#include "LumenvaleKit/Checked.h"
#include "editor/EditorModel.h"

#include <QFutureWatcher>
#include <QPromise>
#include <QtConcurrent/QtConcurrent>
#include <algorithm>
#include <exception>
#include <system_error>

namespace lumenvale {
namespace {

// Progress travels as whole steps of the future's progress range.
constexpr int progressSteps = 1000;

int progressStep(double fraction) {
    const double clamped = fraction > 0 ? std::min(fraction, 1.0) : 0; // not a number: 0
    return static_cast<int>(checkedTruncate(clamped * progressSteps, "export progress"));
}

// What an export's worker hands back to the GUI thread.
struct ExportOutcome {
    QString failure;               // empty on success
    std::filesystem::path written; // on success
    std::optional<Image> poster;   // for the card, when one is shown
};

} // namespace

QFuture<std::optional<std::filesystem::path>> EditorModel::exportFile(AfterExport after) {
    const std::shared_ptr<EditorExport::Reservation> reservation =
        EditorExport::reserveTarget(path_, format_);
    const EditDecision edit = edit_;
    const ExportFormat format = format_;
    const Codec codec = services_.exportCodec ? services_.exportCodec() : Codec::h264;
    const qint64 id = checkedIncrement(exportID_, "the editor's export counter");
    setExportID(id);
    setExportProgress(0.0);
    setError(QString());
    auto stop = std::make_shared<std::atomic<bool>>(false);
    std::erase_if(runningExports_, [](const auto& flag) { return flag.expired(); });
    runningExports_.push_back(stop);

    auto makePoster = after == AfterExport::showCard ? services_.makePoster : nullptr;
    QFuture<ExportOutcome> work =
        QtConcurrent::run([source = path_, edit, format, codec, reservation, makePoster,
                           stop](QPromise<ExportOutcome>& promise) {
            promise.setProgressRange(0, progressSteps);
            ExportOutcome outcome;
            try {
                // The reserved name, or the next free one when another program takes it
                // meanwhile.
                outcome.written = EditorExport::write(
                    source, edit, format, codec, reservation->destination(),
                    [&](double fraction) { promise.setProgressValue(progressStep(fraction)); },
                    stop.get());
                if (makePoster) {
                    outcome.poster = makePoster(outcome.written, edit.outputDuration());
                }
            } catch (const std::exception& failure) {
                outcome.failure = QString::fromUtf8(failure.what());
                if (outcome.failure.isEmpty()) {
                    outcome.failure = QStringLiteral("The export failed.");
                }
            }
            promise.addResult(std::move(outcome));
        });

    auto result = std::make_shared<QPromise<std::optional<std::filesystem::path>>>();
    result->start();
    auto* watcher = new QFutureWatcher<ExportOutcome>(this);
    connect(watcher, &QFutureWatcherBase::progressValueChanged, this, [this, id](int step) {
        if (id == exportID_) {
            setExportProgress(static_cast<double>(step) / progressSteps);
        }
    });
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, watcher, id, edit, format, after, result] {
                const ExportOutcome outcome = watcher->result();
                watcher->deleteLater();
                std::optional<std::filesystem::path> written;
                if (id == exportID_) {
                    setExportProgress(std::nullopt);
                    if (outcome.failure.isEmpty()) {
                        setLastExport(outcome.written);
                        exported_ = ExportRecord{outcome.written, edit, format};
                        written = outcome.written;
                        if (after == AfterExport::showCard && services_.showCard) {
                            services_.showCard(
                                {outcome.written, edit.outputDuration(), outcome.poster, {}});
                        }
                    } else {
                        // The writer left nothing behind; a file under the name is not ours.
                        setError(outcome.failure);
                    }
                }
                result->addResult(written);
                result->finish();
            });
    watcher->setFuture(work);
    return result->future();
}

QFuture<std::optional<std::filesystem::path>> EditorModel::currentExport() {
    std::error_code ignored;
    if (exported_ && exported_->edit == edit_ && exported_->format == format_ &&
        std::filesystem::exists(exported_->path, ignored)) {
        return QtFuture::makeReadyFuture(std::optional<std::filesystem::path>(exported_->path));
    }
    return exportFile(AfterExport::noCard);
}

void EditorModel::startExport() {
    exportFile(AfterExport::showCard);
}

void EditorModel::stopRunningExports() {
    for (const auto& running : runningExports_) {
        if (const auto flag = running.lock()) {
            flag->store(true);
        }
    }
    runningExports_.clear();
}

void EditorModel::cancelExport() {
    stopRunningExports();
    if (exportProgress_) {
        // Its result is dropped as an overtaken one's would be.
        setExportID(checkedIncrement(exportID_, "the editor's export counter"));
        setExportProgress(std::nullopt);
    }
}

} // namespace lumenvale
