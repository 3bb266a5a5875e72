#pragma once

#include "LumenvaleKit/EditDecision.h"
#include "LumenvaleKit/PixelSize.h"
#include "editor/EditorExport.h"
#include "editor/EditorServices.h"
#include "editor/MovieFacts.h"
#include "editor/PreviewPlayer.h"

#include <QFuture>
#include <QImage>
#include <QList>
#include <QObject>
#include <QSize>
#include <QTimer>
#include <QUrl>
#include <QVariant>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace lumenvale {

// One picture of the editor's filmstrip, taken at a source time.
struct EditorThumbnail {
    double timeSeconds = 0;
    QImage image;
};

// The state of one open editor: one recording, its edit decision, the undo and redo
// history, the playhead, playback, the export in progress and the last export.
//
// Threads: lives on the GUI thread and is used only there. Preview builds, thumbnails
// and exports run on worker threads and hand their results back to the GUI thread;
// `generation` and `exportID` drop results that a newer request has overtaken.
// Every property is assigned only when its value really changes, and its signal is
// emitted only then.
//
// Every discrete edit goes through change(); a continuous gesture (a drag) calls
// beginGesture(), assigns the edit with setEdit() while it moves, and ends with
// endGesture(), which records one undo step if the edit moved.
class EditorModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QUrl url READ url CONSTANT)
    Q_PROPERTY(QSize videoSize READ videoQSize CONSTANT)
    Q_PROPERTY(int audioTracks READ audioTracks CONSTANT)
    Q_PROPERTY(lumenvale::EditDecision edit READ edit WRITE setEdit NOTIFY editChanged)
    Q_PROPERTY(double outputDuration READ outputDuration NOTIFY editChanged)
    Q_PROPERTY(bool canUndo READ canUndo NOTIFY historyChanged)
    Q_PROPERTY(bool canRedo READ canRedo NOTIFY historyChanged)
    Q_PROPERTY(
        QList<lumenvale::EditorThumbnail> thumbnails READ thumbnails NOTIFY thumbnailsChanged)
    Q_PROPERTY(double time READ time NOTIFY timeChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(QVariant exportProgress READ exportProgressValue NOTIFY exportProgressChanged)
    Q_PROPERTY(QString lastExport READ lastExportText NOTIFY lastExportChanged)
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(QString selection READ selectionText NOTIFY selectionChanged)
    Q_PROPERTY(
        lumenvale::EditorExport::Format format READ format WRITE setFormat NOTIFY formatChanged)
    Q_PROPERTY(bool cropping READ cropping WRITE setCropping NOTIFY croppingChanged)
    Q_PROPERTY(qint64 generation READ generation NOTIFY generationChanged)
    Q_PROPERTY(qint64 exportID READ exportID NOTIFY exportIDChanged)
    Q_PROPERTY(QObject* previewPlayer READ previewPlayer CONSTANT)

  public:
    using ExportFormat = EditorExport::Format;

    // What the last successful export wrote, from which edit, in which format.
    struct ExportRecord {
        std::filesystem::path path;
        EditDecision edit;
        ExportFormat format = ExportFormat::movie;
    };

    // Whether a finished export shows the recording card.
    enum class AfterExport { showCard, noCard };

    struct LoadResult {
        std::unique_ptr<EditorModel> model; // set when the recording opened
        QString error;                      // why it did not, otherwise
    };

    // Opens a recording: reads it on a worker thread, then, on the GUI thread, makes
    // a model (with one clip over the whole recording), builds its preview and starts
    // loading the filmstrip. `done` runs on the GUI thread with the ready model (the
    // caller owns it) or the reason it could not be opened: the file is missing, not a
    // movie, damaged, or has no video or no length ("Nothing was recorded.").
    // `done` is dropped if `context` is destroyed first.
    static void load(const std::filesystem::path& movie, EditorServices services, QObject* context,
                     std::function<void(LoadResult)> done);

    ~EditorModel() override;

    const std::filesystem::path& path() const { return path_; }
    QUrl url() const;
    PixelSize videoSize() const { return videoSize_; }
    int audioTracks() const { return audioTracks_; }
    // Source audio track N's name at index N - 1.
    const std::vector<std::string>& audioTrackNames() const { return audioTrackNames_; }
    const EditDecision& edit() const { return edit_; }
    double outputDuration() const { return edit_.outputDuration(); }
    const std::vector<EditDecision>& undoStack() const { return undoStack_; }
    const std::vector<EditDecision>& redoStack() const { return redoStack_; }
    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    const QList<EditorThumbnail>& thumbnails() const { return thumbnails_; }
    double time() const { return time_; }
    bool isPlaying() const { return isPlaying_; }
    std::optional<double> exportProgress() const { return exportProgress_; }
    const std::optional<std::filesystem::path>& lastExport() const { return lastExport_; }
    QString error() const { return error_; }
    std::optional<Uuid> selection() const { return selection_; }
    // The selected clip, if the selection names one.
    std::optional<Clip> selectedClip() const;
    ExportFormat format() const { return format_; }
    bool cropping() const { return cropping_; }
    qint64 generation() const { return generation_; }
    qint64 exportID() const { return exportID_; }
    const std::optional<ExportRecord>& exported() const { return exported_; }
    const std::optional<EditDecision>& gestureStart() const { return gestureStart_; }
    PreviewPlayer& player() { return *player_; }
    // The player as a QObject when it is one (the view shows its pictures), else null.
    QObject* previewPlayer() const { return dynamic_cast<QObject*>(player_.get()); }

    // Assigns the edit without recording history or rebuilding the preview: for the
    // steps of a gesture between beginGesture() and endGesture().
    void setEdit(const EditDecision& edit);
    void setSelection(std::optional<Uuid> selection);
    void setFormat(ExportFormat format);
    // Turning crop mode on gives an edit without crop a full-frame crop (one undo
    // step); turning it off drops a crop that still covers the frame (another).
    void setCropping(bool cropping);

    // The funnel for discrete edits: applies `body` to a copy of the edit; when the
    // result differs, the old edit becomes an undo step, redo is cleared and the
    // preview is rebuilt. An edit that comes out equal records nothing.
    void change(const std::function<void(EditDecision&)>& body);

    // Writes the current edit in the current format next to the recording as
    // "<name> edited.mp4" / ".gif" (the next free number when taken). The future gives
    // the written file, or nothing when the export failed (then `error` says why and
    // nothing is left behind) or a newer export overtook it.
    QFuture<std::optional<std::filesystem::path>> exportFile(AfterExport after);
    // The last export when it was made from the current edit and format and its file
    // still exists; otherwise a new export without the card.
    QFuture<std::optional<std::filesystem::path>> currentExport();

  public slots:
    // Remembers the edit as it is when a drag begins.
    void beginGesture();
    // Ends the drag: one undo step if the edit moved since beginGesture(), none if it
    // came back to where it started.
    void endGesture();
    void undo();
    void redo();
    // Splits the clip under the playhead and selects the clip under the playhead.
    void split();
    // Deletes the selected clip, or the clip under the playhead; never the last one.
    void deleteClip();
    // Moves the playhead, clamped into the edit.
    void seek(double outputSeconds);
    // Plays or pauses; playing from the end starts again at 0.
    void togglePlay();
    // Pauses and moves by whole frames of 1/30 s.
    void step(int frames);
    // Exports in the current format and shows the card.
    void startExport();
    // Stops the running export: it removes what it wrote, reports nothing, and Export
    // is ready again at once.
    void cancelExport();
    // Stops playback and the playhead's observation; the window is closing.
    void close();

  signals:
    void editChanged();
    void historyChanged();
    void thumbnailsChanged();
    void timeChanged();
    void isPlayingChanged();
    void exportProgressChanged();
    void lastExportChanged();
    void errorChanged();
    void selectionChanged();
    void formatChanged();
    void croppingChanged();
    void generationChanged();
    void exportIDChanged();

  private:
    EditorModel(std::filesystem::path movie, const MovieFacts& facts, EditorServices services);

    QSize videoQSize() const;
    QVariant exportProgressValue() const;
    QString lastExportText() const;
    QString selectionText() const;

    void recordUndoStep(EditDecision previous);
    void afterChange();
    void rebuild();
    void loadThumbnails();
    void stopRunningExports();
    void observePlayer();

    void setTime(double seconds);
    void setIsPlaying(bool playing);
    void setExportProgress(std::optional<double> progress);
    void setLastExport(std::optional<std::filesystem::path> path);
    void setError(const QString& error);
    void setGeneration(qint64 generation);
    void setExportID(qint64 id);

    const std::filesystem::path path_;
    const PixelSize videoSize_;
    const int audioTracks_;
    const std::vector<std::string> audioTrackNames_;
    EditorServices services_;
    EditDecision edit_;
    std::vector<EditDecision> undoStack_;
    std::vector<EditDecision> redoStack_;
    QList<EditorThumbnail> thumbnails_;
    double time_ = 0;
    bool isPlaying_ = false;
    std::optional<double> exportProgress_;
    std::optional<std::filesystem::path> lastExport_;
    QString error_;
    std::optional<Uuid> selection_;
    ExportFormat format_ = ExportFormat::movie;
    bool cropping_ = false;
    const std::unique_ptr<PreviewPlayer> player_;
    std::optional<EditDecision> gestureStart_;
    QTimer playerObserver_;
    qint64 generation_ = 0;
    std::optional<ExportRecord> exported_;
    qint64 exportID_ = 0;
    // The stop flags of exports still running: set when they are cancelled or the model
    // goes away, so they stop early and clean up.
    std::vector<std::weak_ptr<std::atomic<bool>>> runningExports_;
};

} // namespace lumenvale

Q_DECLARE_METATYPE(lumenvale::EditDecision)
Q_DECLARE_METATYPE(lumenvale::EditorThumbnail)
