#pragma once

#include "editor/EditorModel.h"

#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <functional>
#include <optional>

namespace lumenvale {

// The editor window's views (EditorView.qml) over one EditorModel: the model's values
// in the shapes QML reads (clips as lists, the crop as a rectangle, clock texts), the
// layout rules of the timeline, the filmstrip and the crop box, and the drags that
// become one undo step each. It holds no edit of its own: everything goes through the
// model.
//
// Threads: the GUI thread.
class EditorViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(lumenvale::EditorModel* model READ model CONSTANT)
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QVariantList clips READ clips NOTIFY clipsChanged)
    Q_PROPERTY(QString timeText READ timeText NOTIFY timeTextChanged)
    Q_PROPERTY(QRectF crop READ crop NOTIFY clipsChanged)
    Q_PROPERTY(double speed READ speed NOTIFY clipsChanged)
    Q_PROPERTY(QVariantList audioTracks READ audioTracks NOTIFY clipsChanged)
    Q_PROPERTY(QSizeF pictureSize READ pictureSize NOTIFY pictureSizeChanged)
    Q_PROPERTY(int thumbnailCount READ thumbnailCount NOTIFY thumbnailsChanged)
    Q_PROPERTY(bool exporting READ exporting NOTIFY exportingChanged)
    Q_PROPERTY(QString format READ format WRITE setFormat NOTIFY formatChanged)

  public:
    // `thumbnailSource` names the model's filmstrip pictures for the views ("image://…").
    EditorViewModel(EditorModel& model, QString thumbnailSource,
                    std::function<void(const QString&)> notify, QObject* parent = nullptr);

    EditorModel* model() const { return &model_; }
    QString title() const;
    // One map per clip, in order: id, start and end (source seconds), outputStart and
    // outputDuration (seconds of output), label ("0:01 to 0:04"), selected.
    QVariantList clips() const;
    // "0:03 / 0:10": the playhead and the output's length.
    QString timeText() const;
    // The crop in fractions of the picture; the whole picture when there is none.
    QRectF crop() const;
    double speed() const;
    // One map per source audio track: track (its number in the edit), name, volume.
    QVariantList audioTracks() const;
    // The shape of what the preview shows: the whole picture while the crop box is
    // placed, else the crop's pixels.
    QSizeF pictureSize() const;
    int thumbnailCount() const;
    bool exporting() const { return model_.exportProgress().has_value(); }
    // The export format by its name: "movie" or "gif".
    QString format() const;
    void setFormat(const QString& format);

    Q_INVOKABLE static QString clockText(double seconds);
    Q_INVOKABLE static double timelineScale(double widthPoints, double durationSeconds);
    Q_INVOKABLE static double rulerStep(double pointsPerSecond);
    Q_INVOKABLE static double playheadX(double timeSeconds, double pointsPerSecond,
                                        double widthPoints);
    // The pictures of clip `index`'s filmstrip at `widthPoints`: the thumbnail nearest
    // each slice's middle, or "" where none is loaded yet.
    Q_INVOKABLE QStringList filmstrip(int index, double widthPoints) const;

    // A click on clip `index` drawn `widthPoints` wide: selects it and moves the
    // playhead under the pointer.
    Q_INVOKABLE void clickClip(int index, double xPoints, double widthPoints);
    // A drag of a clip's edge (`edge`: 0 leading, 1 trailing): the scale is fixed when
    // the drag starts; each move trims from the edit as it was then; the end records one
    // undo step when the clip changed.
    Q_INVOKABLE void beginTrim(int index, int edge, double widthPoints);
    Q_INVOKABLE void trimBy(double dxPoints);
    Q_INVOKABLE void endTrim();

    // A drag of the crop box: `handle` -1 moves it, 0 … 3 resize at the top-left,
    // top-right, bottom-left, bottom-right corner; dx and dy are fractions of the picture.
    Q_INVOKABLE void beginCropDrag();
    Q_INVOKABLE void dragCrop(int handle, double dx, double dy);
    Q_INVOKABLE void endCropDrag();

    Q_INVOKABLE void setSpeed(double speed);
    // A gain slider's drag is one undo step; a click sets the value at once.
    Q_INVOKABLE void beginVolume();
    Q_INVOKABLE void setVolume(int track, double gain);
    Q_INVOKABLE void endVolume();
    // Silences the track, or gives a silenced one back full volume.
    Q_INVOKABLE void toggleMute(int track);

    // The share menu at (x, y) in Qt's global coordinates, after exporting when the
    // current edit has not been exported yet.
    Q_INVOKABLE void share(double x, double y);

  signals:
    void clipsChanged();
    void timeTextChanged();
    void pictureSizeChanged();
    void thumbnailsChanged();
    void exportingChanged();
    void formatChanged();

  private:
    struct Trim {
        Uuid clip;
        int edge = 0;
        double edgeSeconds = 0;     // the edge's source time when the drag began
        double pointsPerSecond = 1; // of source time, fixed for the drag
        EditDecision start;
    };

    EditorModel& model_;
    const QString thumbnailSource_;
    const std::function<void(const QString&)> notify_;
    std::optional<Trim> trim_;
    std::optional<Rect> cropStart_;
};

} // namespace lumenvale
