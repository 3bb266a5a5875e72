#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/PixelSize.h"
#include "LumenvaleKit/RecordingOptions.h"
#include "LumenvaleMedia/PartLock.h"
#include "LumenvaleMedia/RecordingFiles.h"
#include "base/SaveFolder.h"
#include "recorder/RecorderPhase.h"
#include "recorder/RecorderTypes.h"
#include "recorder/RecorderUiNull.h"

#include <QDateTime>
#include <QObject>
#include <QThreadPool>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

class QTimer;

namespace lumenvale {

class RecorderUi;
class RecordingPipeline;
class VideoSource;

// The recording engine and the single source of truth for what is being recorded
// now. One recording at a time runs through the phase machine of RecorderPhase
// (idle → selecting → countdown → recording ⇄ paused → finishing → idle); each pause
// ends a part file, and the finish hands the parts to RecordingFiles::save, which
// joins them into one movie in the save folder. The parts stay locked (PartLock)
// from their creation until that save has ended.
//
// Threads: created, used and observed on the GUI thread only. Capture and part
// writing run on the media pipeline's threads; stopping the capture and saving run
// on the recorder's own worker thread ("app.lumenvale.Lumenvale.recorder"); their
// results come back by queued calls and are discarded when `session` moved on.
// Every observable property is assigned only when its value changes.
class ScreenRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(lumenvale::RecorderPhase::Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(
        lumenvale::RecordingOptions options READ options WRITE setOptions NOTIFY optionsChanged)
    Q_PROPERTY(std::optional<lumenvale::Recording> last READ last NOTIFY lastChanged)
    Q_PROPERTY(double accumulatedSeconds READ accumulatedSeconds NOTIFY elapsedChanged)
    Q_PROPERTY(QDateTime resumedAt READ resumedAt NOTIFY elapsedChanged)

  public:
    using Phase = RecorderPhase::Phase;

    // Loads the options from the store. Tests may make their own; the application
    // uses shared(). A recorder must not be destroyed while it records or finishes.
    explicit ScreenRecorder(QObject* parent = nullptr);
    ~ScreenRecorder() override;

    // The application's recorder, created on first use and never destroyed.
    static ScreenRecorder& shared();

    // What is shown around a recording. Not owned; must outlive its use here.
    // Without one (nullptr), the recorder's own RecorderUiNull: nothing is shown, a
    // selection is cancelled and a countdown completes at once.
    void setUi(RecorderUi* ui);

    Phase phase() const { return phase_; }

    // The recording options; every assignment is saved to the store at once.
    const RecordingOptions& options() const { return options_; }
    void setOptions(const RecordingOptions& options);

    // Options for the recordings of this process only, never saved (the command
    // line's flags); nothing returns to options(). The options a start uses are
    // optionsInForce(). `folderOrigin` says whether their folderPath was named on the
    // command line, which outranks the test folder (SaveFolder::resolve).
    void setRunOptions(std::optional<RecordingOptions> options,
                       SaveFolder::FolderOrigin folderOrigin = SaveFolder::FolderOrigin::settings);
    const RecordingOptions& optionsInForce() const;
    // Where the next recording is saved, by optionsInForce().
    std::filesystem::path saveFolder() const;

    const std::optional<Recording>& last() const { return last_; }

    // Elapsed recording time = accumulated + the seconds since resumedAt, when that
    // is valid; it stands still while paused.
    double accumulatedSeconds() const { return accumulated_; }
    QDateTime resumedAt() const { return resumedAt_; }
    double elapsedSeconds() const;

    std::int64_t session() const { return session_; }
    std::optional<PixelSize> pixelSize() const { return pixelSize_; }
    Codec codec() const { return codec_; }
    const std::vector<std::uint32_t>& keptWindows() const { return keptWindows_; }
    bool excludesSelf() const { return excludesSelf_; }

    // Fire and forget: start(kind) with no selection.
    void record(RecordKind kind);

    // Begins a recording. An area or window start without a selection opens the
    // selection overlay and answers false; the overlay calls start() again with the
    // user's selection. `done` (optional) receives true once the capture runs, false
    // when the start ended otherwise. Starts only from idle (or from selecting, with a
    // selection); otherwise answers false at once.
    void start(RecordKind kind, std::optional<Selection> selection = std::nullopt,
               std::function<void(bool started)> done = {});
    // The overlay was dismissed without a selection.
    void selectionCancelled();

    // Ends the current part (only while recording) / begins a new one (only while
    // paused); anything else does nothing.
    void pause();
    void resume();
    // Ends whatever the recorder is doing, as the phase dictates: nothing when idle or
    // finishing, back to idle without a movie when selecting or counting down, the
    // finish (saving the movie) when recording or paused.
    void stop();

    // Shows the panels in a given state without capturing (screenshots only).
    void preview(Phase phase, double elapsedSeconds);

    // The finish sound, played once after a successful save. Replaceable (tests).
    void setFinishSound(std::function<void()> play);

    // The wait for a detached part's file to be complete, keyed by the part's path:
    // `done` is called exactly once, at once when the part already reported, else when
    // it reports or after 5 seconds, whichever comes first.
    void waitForFinish(const std::filesystem::path& part, std::function<void()> done);
    // A part reported that its file is complete (or that writing it failed).
    void outputDidFinish(const std::filesystem::path& part);
    // The capture `streamID` ended by itself with a user-facing reason.
    void streamDidStop(std::uint64_t streamID, const QString& reason);

  signals:
    void phaseChanged(lumenvale::RecorderPhase::Phase phase);
    void optionsChanged();
    void lastChanged();
    void elapsedChanged();
    // A notice was shown (also through the UI): for observers and tests.
    void noticeShown(const QString& text);
    // The capture ended by itself (the window closed, the display or the sound server
    // went away, the disk filled) with this user-facing reason; the finish follows.
    void stoppedByItself(const QString& reason);
    // A save ended: the movie, or nothing when it failed.
    void finishEnded(const std::optional<lumenvale::Recording>& recording);

  private:
    struct Started {
        std::unique_ptr<RecordingPipeline> stream;
        std::uint64_t streamID = 0;
        std::filesystem::path url; // the first part
    };
    struct Launch; // one start in progress

    void enter(RecorderPhase::Event event);
    void setPhase(Phase phase);
    void setAccumulated(double seconds, QDateTime resumedAt);
    void setLast(Recording recording);
    void notice(const QString& text);

    void continueStart(std::shared_ptr<Launch> launch);
    void afterCountdown(std::shared_ptr<Launch> launch);
    void abandonStart(const std::shared_ptr<Launch>& launch);
    bool isCurrent(const Launch& launch) const;
    // The capture of a window the desktop's dialog picks now (throws MediaError).
    std::unique_ptr<VideoSource> pickWindow(const RecordingOptions& options);
    // Takes the launch's picked window, if any.
    Started makeStream(Launch& launch);

    void finish();
    void afterStreamStopped(std::int64_t finishSession);
    void waitForPending(std::int64_t finishSession, std::size_t index);
    void save(std::int64_t finishSession);
    void endFinish(std::optional<Recording> recording, const QString& failure);

    RecorderUiNull nullUi_{*this};
    RecorderUi* ui_ = &nullUi_; // never null
    Phase phase_ = Phase::idle;
    RecordingOptions options_;
    std::optional<RecordingOptions> runOptions_;
    SaveFolder::FolderOrigin runFolderOrigin_ = SaveFolder::FolderOrigin::settings;
    std::optional<Recording> last_;
    std::vector<std::uint32_t> keptWindows_;
    bool excludesSelf_ = false;
    std::optional<PixelSize> pixelSize_;
    Codec codec_ = Codec::h264;
    std::int64_t session_ = 0;

    std::unique_ptr<RecordingPipeline> stream_;
    std::uint64_t streamID_ = 0;
    std::uint64_t lastStreamID_ = 0;
    std::optional<std::filesystem::path> output_; // the part being written
    std::vector<std::filesystem::path> pending_;  // detached parts, maybe still being written
    std::vector<std::filesystem::path> segments_; // every part, in recording order
    // The recording's locks on its parts, from the stopped pipeline to the save's end.
    std::shared_ptr<std::vector<PartLock>> partLocks_;
    double accumulated_ = 0;
    QDateTime resumedAt_;

    struct Waiter {
        std::function<void()> done;
        QTimer* timer = nullptr;
    };
    std::set<std::filesystem::path> finished_;
    std::map<std::filesystem::path, Waiter> waiters_;

    std::function<void()> finishSound_;
    QThreadPool workers_;
};

} // namespace lumenvale
