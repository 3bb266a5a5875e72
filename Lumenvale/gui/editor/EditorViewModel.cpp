#include "gui/editor/EditorViewModel.h"

#include "LumenvaleKit/Clock.h"
#include "base/PathText.h"
#include "gui/card/ShareMenu.h"
#include "gui/editor/EditorGeometry.h"

#include <QFutureWatcher>
#include <QPoint>
#include <QVariantMap>
#include <algorithm>
#include <cmath>

namespace lumenvale {

EditorViewModel::EditorViewModel(EditorModel& model, QString thumbnailSource,
                                 std::function<void(const QString&)> notify, QObject* parent)
    : QObject(parent), model_(model), thumbnailSource_(std::move(thumbnailSource)),
      notify_(std::move(notify)) {
    connect(&model_, &EditorModel::editChanged, this, &EditorViewModel::clipsChanged);
    connect(&model_, &EditorModel::selectionChanged, this, &EditorViewModel::clipsChanged);
    connect(&model_, &EditorModel::editChanged, this, &EditorViewModel::timeTextChanged);
    connect(&model_, &EditorModel::timeChanged, this, &EditorViewModel::timeTextChanged);
    connect(&model_, &EditorModel::editChanged, this, &EditorViewModel::pictureSizeChanged);
    connect(&model_, &EditorModel::croppingChanged, this, &EditorViewModel::pictureSizeChanged);
    connect(&model_, &EditorModel::thumbnailsChanged, this, &EditorViewModel::thumbnailsChanged);
    connect(&model_, &EditorModel::exportProgressChanged, this, &EditorViewModel::exportingChanged);
    connect(&model_, &EditorModel::formatChanged, this, &EditorViewModel::formatChanged);
}

QString EditorViewModel::format() const {
    return model_.format() == EditorModel::ExportFormat::gif ? QStringLiteral("gif")
                                                             : QStringLiteral("movie");
}

void EditorViewModel::setFormat(const QString& format) {
    model_.setFormat(format == QLatin1String("gif") ? EditorModel::ExportFormat::gif
                                                    : EditorModel::ExportFormat::movie);
}

QString EditorViewModel::title() const {
    return toQString(model_.path().stem());
}

QVariantList EditorViewModel::clips() const {
    const EditDecision& edit = model_.edit();
    const std::vector<double> starts = edit.clipStarts();
    QVariantList list;
    for (std::size_t index = 0; index < edit.clips.size(); ++index) {
        const Clip& clip = edit.clips[index];
        list.append(QVariantMap{
            {QStringLiteral("id"), QString::fromStdString(clip.id.text())},
            {QStringLiteral("start"), clip.start},
            {QStringLiteral("end"), clip.end},
            {QStringLiteral("outputStart"), starts[index]},
            {QStringLiteral("outputDuration"), clip.duration() / edit.speed},
            {QStringLiteral("label"),
             clockText(clip.start) + QStringLiteral(" to ") + clockText(clip.end)},
            {QStringLiteral("selected"), model_.selection() == clip.id},
        });
    }
    return list;
}

QString EditorViewModel::timeText() const {
    return clockText(model_.time()) + QStringLiteral(" / ") + clockText(model_.outputDuration());
}

QRectF EditorViewModel::crop() const {
    const std::optional<Rect>& crop = model_.edit().crop;
    return crop ? QRectF(crop->minX(), crop->minY(), crop->maxX() - crop->minX(),
                         crop->maxY() - crop->minY())
                : QRectF(0, 0, 1, 1);
}

double EditorViewModel::speed() const {
    return model_.edit().speed;
}

QVariantList EditorViewModel::audioTracks() const {
    QVariantList list;
    const std::vector<std::string>& names = model_.audioTrackNames();
    for (std::size_t index = 0; index < names.size(); ++index) {
        const int track = static_cast<int>(index) + 1;
        list.append(QVariantMap{{QStringLiteral("track"), track},
                                {QStringLiteral("name"), QString::fromStdString(names[index])},
                                {QStringLiteral("volume"), model_.edit().volume(track)}});
    }
    return list;
}

QSizeF EditorViewModel::pictureSize() const {
    const PixelSize video = model_.videoSize();
    const std::optional<Rect>& crop = model_.edit().crop;
    if (model_.cropping() || !crop) {
        return {static_cast<double>(video.width), static_cast<double>(video.height)};
    }
    const Rect pixels = EditDecision::cropPixels(*crop, video);
    return {pixels.width, pixels.height};
}

int EditorViewModel::thumbnailCount() const {
    return static_cast<int>(model_.thumbnails().size());
}

QString EditorViewModel::clockText(double seconds) {
    return QString::fromStdString(Clock::text(seconds));
}

double EditorViewModel::timelineScale(double widthPoints, double durationSeconds) {
    return EditorGeometry::timelineScale(widthPoints, durationSeconds);
}

double EditorViewModel::rulerStep(double pointsPerSecond) {
    return EditorGeometry::rulerStepSeconds(pointsPerSecond);
}

double EditorViewModel::playheadX(double timeSeconds, double pointsPerSecond, double widthPoints) {
    return EditorGeometry::playheadX(timeSeconds, pointsPerSecond, widthPoints);
}

QStringList EditorViewModel::filmstrip(int index, double widthPoints) const {
    const EditDecision& edit = model_.edit();
    if (index < 0 || static_cast<std::size_t>(index) >= edit.clips.size()) {
        return {};
    }
    const QList<EditorThumbnail>& thumbnails = model_.thumbnails();
    QStringList sources;
    for (const double time :
         EditorGeometry::filmstripTimes(edit.clips[static_cast<std::size_t>(index)], widthPoints)) {
        if (thumbnails.isEmpty()) {
            sources.append(QString());
            continue;
        }
        // The thumbnails are sorted by time: the nearest is beside the first later one.
        const auto later = std::lower_bound(
            thumbnails.begin(), thumbnails.end(), time,
            [](const EditorThumbnail& thumbnail, double t) { return thumbnail.timeSeconds < t; });
        auto nearest = later == thumbnails.end() ? later - 1 : later;
        if (nearest != thumbnails.begin() &&
            std::abs((nearest - 1)->timeSeconds - time) < std::abs(nearest->timeSeconds - time)) {
            --nearest;
        }
        sources.append(thumbnailSource_ + QString::number(nearest - thumbnails.begin()));
    }
    return sources;
}

void EditorViewModel::clickClip(int index, double xPoints, double widthPoints) {
    const EditDecision& edit = model_.edit();
    if (index < 0 || static_cast<std::size_t>(index) >= edit.clips.size()) {
        return;
    }
    const auto clip = static_cast<std::size_t>(index);
    model_.setSelection(edit.clips[clip].id);
    model_.seek(EditorGeometry::clipOutputTime(edit, clip, xPoints, widthPoints));
}

void EditorViewModel::beginTrim(int index, int edge, double widthPoints) {
    const EditDecision& edit = model_.edit();
    if (index < 0 || static_cast<std::size_t>(index) >= edit.clips.size()) {
        return;
    }
    const Clip& clip = edit.clips[static_cast<std::size_t>(index)];
    model_.beginGesture();
    model_.setSelection(clip.id);
    // Points per second of source, so the edge stays under the pointer at any speed.
    trim_ = Trim{clip.id, edge, edge == 0 ? clip.start : clip.end,
                 std::max(widthPoints, 1.0) / clip.duration(), edit};
}

void EditorViewModel::trimBy(double dxPoints) {
    if (!trim_) {
        return;
    }
    EditDecision trimmed = trim_->start;
    const double edge = trim_->edgeSeconds + dxPoints / trim_->pointsPerSecond;
    if (trim_->edge == 0) {
        trimmed.trim(trim_->clip, edge, std::nullopt);
    } else {
        trimmed.trim(trim_->clip, std::nullopt, edge);
    }
    model_.setEdit(trimmed);
}

void EditorViewModel::endTrim() {
    if (trim_) {
        trim_.reset();
        model_.endGesture();
    }
}

void EditorViewModel::beginCropDrag() {
    model_.beginGesture();
    const QRectF current = crop();
    cropStart_ = Rect{current.x(), current.y(), current.width(), current.height()};
}

void EditorViewModel::dragCrop(int handle, double dx, double dy) {
    if (!cropStart_) {
        return;
    }
    Rect moved = *cropStart_;
    if (handle < 0) {
        moved.x += dx;
        moved.y += dy;
    } else {
        moved = EditorGeometry::resizeCrop(
            *cropStart_, static_cast<EditorGeometry::CropCorner>(handle % 4), dx, dy);
    }
    EditDecision edit = model_.edit();
    edit.crop = EditorGeometry::clampCrop(moved);
    model_.setEdit(edit);
}

void EditorViewModel::endCropDrag() {
    if (cropStart_) {
        cropStart_.reset();
        model_.endGesture();
    }
}

void EditorViewModel::setSpeed(double speed) {
    if (speed > 0 && std::isfinite(speed)) {
        model_.change([speed](EditDecision& edit) { edit.speed = speed; });
    }
}

void EditorViewModel::beginVolume() {
    model_.beginGesture();
}

void EditorViewModel::setVolume(int track, double gain) {
    const double clamped = std::isfinite(gain) ? std::clamp(gain, 0.0, 2.0) : 1.0;
    const auto apply = [track, clamped](EditDecision& edit) {
        if (clamped == 1) {
            edit.volumes.erase(track); // no entry is full volume; the edit stays a cut
        } else {
            edit.volumes[track] = clamped;
        }
    };
    if (model_.gestureStart()) {
        EditDecision edit = model_.edit();
        apply(edit);
        model_.setEdit(edit);
    } else {
        model_.change(apply);
    }
}

void EditorViewModel::endVolume() {
    model_.endGesture();
}

void EditorViewModel::toggleMute(int track) {
    setVolume(track, model_.edit().volume(track) == 0 ? 1.0 : 0.0);
}

void EditorViewModel::share(double x, double y) {
    if (exporting()) {
        return;
    }
    auto* watcher = new QFutureWatcher<std::optional<std::filesystem::path>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, x, y] {
        watcher->deleteLater();
        if (const std::optional<std::filesystem::path> file = watcher->result()) {
            ShareMenu::popup(toQString(*file), QPoint(static_cast<int>(x), static_cast<int>(y)),
                             notify_);
        }
    });
    watcher->setFuture(model_.currentExport());
}

} // namespace lumenvale
