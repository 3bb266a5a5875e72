#include "editor/EditorModel.h"

#include "LumenvaleKit/Checked.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "editor/PreviewPlayerNull.h"
#include "editor/QtImage.h"
#include "editor/WorkerTask.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <utility>

namespace lumenvale {
namespace {

// The playhead follows a playing player this often: once per frame at 30 frames a second.
constexpr std::chrono::milliseconds observerInterval{33};
// How many pictures the filmstrip holds.
constexpr int filmstripPictures = 48;
// The frame-step buttons step 1/30 s, whatever the recording's own frame rate.
constexpr double stepsPerSecond = 30;
// Playing from this close to the end starts again at the beginning.
constexpr double endSlackSeconds = 0.05;
// Builds are what the user waits for; they go ahead of filmstrip work in the pool.
constexpr int previewBuildPriority = 1;

} // namespace

void EditorModel::load(const std::filesystem::path& movie, EditorServices services,
                       QObject* context, std::function<void(LoadResult)> done) {
    struct Probe {
        std::optional<MovieFacts> facts;
        QString error;
    };
    runOnWorker(
        context,
        [movie] {
            Probe probe;
            try {
                probe.facts = readMovieFacts(movie);
            } catch (const std::exception& failure) {
                probe.error = QString::fromUtf8(failure.what());
            }
            return probe;
        },
        [movie, services = std::move(services), done = std::move(done)](const Probe& probe) {
            LoadResult result;
            if (probe.facts) {
                result.model.reset(new EditorModel(movie, *probe.facts, services));
                result.model->rebuild();
                result.model->loadThumbnails();
            } else {
                result.error = probe.error;
            }
            done(std::move(result));
        });
}

EditorModel::EditorModel(std::filesystem::path movie, const MovieFacts& facts,
                         EditorServices services)
    : path_(std::move(movie)), videoSize_(facts.videoSize), audioTracks_(facts.audioTracks),
      audioTrackNames_(facts.audioTrackNames), services_(std::move(services)),
      edit_(facts.durationSeconds), player_([this]() -> std::unique_ptr<PreviewPlayer> {
          auto made = services_.makePlayer ? services_.makePlayer() : nullptr;
          return made ? std::move(made) : std::make_unique<PreviewPlayerNull>();
      }()) {
    playerObserver_.setTimerType(Qt::PreciseTimer);
    playerObserver_.setInterval(observerInterval);
    connect(&playerObserver_, &QTimer::timeout, this, &EditorModel::observePlayer);
    playerObserver_.start();
}

EditorModel::~EditorModel() {
    // Running exports stop early and remove what they wrote; their results, and those
    // of builds still running, are dropped with this object.
    stopRunningExports();
}

QUrl EditorModel::url() const {
    return QUrl::fromLocalFile(QString::fromStdString(path_.string()));
}

QSize EditorModel::videoQSize() const {
    return {static_cast<int>(videoSize_.width), static_cast<int>(videoSize_.height)};
}

QVariant EditorModel::exportProgressValue() const {
    return exportProgress_ ? QVariant(*exportProgress_) : QVariant();
}

QString EditorModel::lastExportText() const {
    return lastExport_ ? QString::fromStdString(lastExport_->string()) : QString();
}

QString EditorModel::selectionText() const {
    return selection_ ? QString::fromStdString(selection_->text()) : QString();
}

std::optional<Clip> EditorModel::selectedClip() const {
    if (!selection_) {
        return std::nullopt;
    }
    const auto found = std::find_if(edit_.clips.begin(), edit_.clips.end(),
                                    [&](const Clip& clip) { return clip.id == *selection_; });
    return found == edit_.clips.end() ? std::nullopt : std::optional<Clip>(*found);
}

void EditorModel::setEdit(const EditDecision& edit) {
    if (edit == edit_) {
        return;
    }
    edit_ = edit;
    emit editChanged();
}

void EditorModel::setSelection(std::optional<Uuid> selection) {
    if (selection == selection_) {
        return;
    }
    selection_ = selection;
    emit selectionChanged();
}

void EditorModel::setFormat(ExportFormat format) {
    if (format == format_) {
        return;
    }
    format_ = format;
    emit formatChanged();
}

void EditorModel::setCropping(bool cropping) {
    if (cropping == cropping_) {
        return;
    }
    cropping_ = cropping;
    emit croppingChanged();
    if (cropping_ && !edit_.crop) {
        change([](EditDecision& edit) { edit.crop = Rect{0, 0, 1, 1}; });
    } else if (!cropping_ && edit_.crop && edit_.crop->width > 0.999 &&
               edit_.crop->height > 0.999) {
        change([](EditDecision& edit) { edit.crop.reset(); });
    }
    rebuild();
}

void EditorModel::change(const std::function<void(EditDecision&)>& body) {
    EditDecision updated = edit_;
    body(updated);
    if (updated == edit_) {
        return;
    }
    recordUndoStep(std::exchange(edit_, std::move(updated)));
    emit editChanged();
    afterChange();
}

void EditorModel::recordUndoStep(EditDecision previous) {
    undoStack_.push_back(std::move(previous));
    redoStack_.clear();
    emit historyChanged();
}

void EditorModel::beginGesture() {
    gestureStart_ = edit_;
}

void EditorModel::endGesture() {
    if (!gestureStart_) {
        return;
    }
    EditDecision start = std::move(*gestureStart_);
    gestureStart_.reset();
    if (start != edit_) {
        recordUndoStep(std::move(start));
        afterChange();
    }
}

void EditorModel::undo() {
    if (undoStack_.empty()) {
        return;
    }
    EditDecision previous = std::move(undoStack_.back());
    undoStack_.pop_back();
    redoStack_.push_back(std::exchange(edit_, std::move(previous)));
    emit historyChanged();
    emit editChanged();
    afterChange();
}

void EditorModel::redo() {
    if (redoStack_.empty()) {
        return;
    }
    EditDecision next = std::move(redoStack_.back());
    redoStack_.pop_back();
    undoStack_.push_back(std::exchange(edit_, std::move(next)));
    emit historyChanged();
    emit editChanged();
    afterChange();
}

void EditorModel::afterChange() {
    if (selection_ && !selectedClip()) {
        setSelection(std::nullopt);
    }
    if (!edit_.crop && cropping_) {
        setCropping(false);
    }
    rebuild();
}

void EditorModel::split() {
    const double at = time_;
    change([at](EditDecision& edit) { edit.split(at); });
    if (!edit_.clips.empty()) {
        setSelection(edit_.clips[edit_.locate(time_).index].id);
    }
}

void EditorModel::deleteClip() {
    std::optional<Uuid> target = selection_;
    if (!target && !edit_.clips.empty()) {
        target = edit_.clips[edit_.locate(time_).index].id;
    }
    if (target) {
        change([&](EditDecision& edit) { edit.deleteClip(*target); });
    }
    setSelection(std::nullopt);
}

void EditorModel::seek(double outputSeconds) {
    double clamped = outputSeconds > 0 ? outputSeconds : 0; // not a number becomes 0 too
    clamped = std::min(clamped, edit_.outputDuration());
    setTime(clamped);
    player_->seek(clamped);
}

void EditorModel::togglePlay() {
    if (player_->rate() != 0) {
        player_->pause();
        setIsPlaying(false);
        return;
    }
    if (time_ >= edit_.outputDuration() - endSlackSeconds) {
        seek(0);
    }
    player_->play();
    setIsPlaying(true);
}

void EditorModel::step(int frames) {
    player_->pause();
    setIsPlaying(false);
    // Counted on the grid of frames, so steps land on frame times exactly and many of
    // them add up without drift.
    seek((std::round(time_ * stepsPerSecond) + frames) / stepsPerSecond);
}

void EditorModel::close() {
    player_->pause();
    playerObserver_.stop();
    setIsPlaying(false);
}

void EditorModel::observePlayer() {
    const double rate = player_->rate();
    // While playing, and once more when playback stopped by itself (at the end), so the
    // playhead rests where the player did.
    if (rate != 0 || isPlaying_) {
        setTime(player_->currentTimeSeconds());
    }
    setIsPlaying(rate != 0);
}

void EditorModel::rebuild() {
    const qint64 number = checkedIncrement(generation_, "the editor's preview generation");
    setGeneration(number);
    const bool wasPlaying = isPlaying_;
    EditDecision previewEdit = edit_;
    if (cropping_) {
        // The preview shows the whole frame while the crop box is placed over it.
        previewEdit.crop.reset();
    }
    runOnWorker(
        this,
        [source = path_, previewEdit]() -> std::optional<EditRenderer::Built> {
            try {
                return EditRenderer::build(source, previewEdit);
            } catch (const std::exception&) {
                return std::nullopt; // the current preview stays
            }
        },
        [this, number, wasPlaying](const std::optional<EditRenderer::Built>& built) {
            if (number != generation_ || !built) {
                return;
            }
            player_->setPreview(*built);
            seek(time_);
            if (wasPlaying) {
                player_->play();
            }
        },
        previewBuildPriority);
}

void EditorModel::loadThumbnails() {
    runOnWorker(
        this,
        [source = path_] {
            QList<EditorThumbnail> pictures;
            for (const auto& thumbnail : EditRenderer::thumbnails(source, filmstripPictures)) {
                pictures.append({thumbnail.timeSeconds, toQImage(thumbnail.image)});
            }
            return pictures;
        },
        [this](const QList<EditorThumbnail>& pictures) {
            if (pictures.isEmpty()) {
                return; // the filmstrip starts empty and stays so
            }
            thumbnails_ = pictures;
            emit thumbnailsChanged();
        });
}

void EditorModel::setTime(double seconds) {
    if (seconds == time_) {
        return;
    }
    time_ = seconds;
    emit timeChanged();
}

void EditorModel::setIsPlaying(bool playing) {
    if (playing == isPlaying_) {
        return;
    }
    isPlaying_ = playing;
    emit isPlayingChanged();
}

void EditorModel::setExportProgress(std::optional<double> progress) {
    if (progress == exportProgress_) {
        return;
    }
    exportProgress_ = progress;
    emit exportProgressChanged();
}

void EditorModel::setLastExport(std::optional<std::filesystem::path> path) {
    if (path == lastExport_) {
        return;
    }
    lastExport_ = std::move(path);
    emit lastExportChanged();
}

void EditorModel::setError(const QString& error) {
    if (error == error_) {
        return;
    }
    error_ = error;
    emit errorChanged();
}

void EditorModel::setGeneration(qint64 generation) {
    if (generation == generation_) {
        return;
    }
    generation_ = generation;
    emit generationChanged();
}

void EditorModel::setExportID(qint64 id) {
    if (id == exportID_) {
        return;
    }
    exportID_ = id;
    emit exportIDChanged();
}

} // namespace lumenvale
