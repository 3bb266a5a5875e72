#pragma once

#include "editor/PreviewPlayer.h"
#include "gui/editor/MpvPreviewPlan.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

struct mpv_handle;
struct mpv_event;

namespace lumenvale {

// An mpv core, shared by the player that drives it and the surface that draws its
// pictures (a render context must go before its core). The last owner terminates it.
using MpvCore = std::shared_ptr<mpv_handle>;

// The editor's preview played by libmpv: the built edit as an inline EDL at the edit's
// speed (pitch kept), cropped, with the sound the export would carry (see
// MpvPreviewPlan). Sound goes to mpv's default output (PulseAudio); pictures appear in
// a PreviewSurface whose `player` is this object, and nowhere without one.
//
// GUI thread only. mpv reports position, pause and the end through observed
// properties; its wakeups are handed to the GUI thread, where they update the values
// rate() and currentTimeSeconds() return, so those cost nothing.
//
// A new preview is loaded when control returns to the event loop, starting where the
// seek that follows it asks, so a rebuild shows the new edit's frame at the playhead
// and never the old one's. Seeks are exact (mpv's precise seeks); at the end mpv keeps
// the last frame and pauses.
class PreviewPlayerMpv final : public QObject, public PreviewPlayer {
    Q_OBJECT

  public:
    struct Made {
        std::unique_ptr<PreviewPlayerMpv> player; // set when mpv started
        QString error;                            // why it did not, otherwise
    };
    // Starts an mpv core for the preview. Sets the C library's LC_NUMERIC to "C", which
    // libmpv requires (Qt formats numbers with its own locale, unaffected).
    static Made create();

    ~PreviewPlayerMpv() override;
    PreviewPlayerMpv(const PreviewPlayerMpv&) = delete;
    PreviewPlayerMpv& operator=(const PreviewPlayerMpv&) = delete;

    void setPreview(const EditRenderer::Built& preview) override;
    void seek(double outputSeconds) override;
    void play() override;
    void pause() override;
    double rate() const override;
    double currentTimeSeconds() const override;

    // For the surface: the core whose pictures it draws.
    const MpvCore& core() const { return core_; }
    // The surface made its render context: the preview is loaded again so mpv opens
    // its video output on it (mpv gives up the picture of a file loaded without one).
    void surfaceAttached();

  signals:
    // A preview could not be played; the sentence says why.
    void failed(const QString& message);

  private:
    explicit PreviewPlayerMpv(MpvCore core);

    Q_INVOKABLE void takeEvents();
    void handle(const mpv_event& event);
    void scheduleLoad();
    void load();
    void applySeek(double outputSeconds);
    void setPaused(bool paused);

    MpvCore core_;
    std::optional<MpvPreviewPlan> plan_;
    bool loadScheduled_ = false;
    std::int64_t loadingEntry_ = -1; // the playlist entry being loaded until it is loaded
    std::int64_t startedEntry_ = -1;
    bool loaded_ = false;
    std::optional<double> pendingSeekSeconds_; // output seconds, applied once loaded
    std::optional<double> seekTargetSeconds_;  // the last seek sent to the core
    double positionSeconds_ = 0;               // output seconds
    bool paused_ = true;
    bool ended_ = false;
    std::atomic<bool> wakeupQueued_{false};
};

// The application's preview player: mpv, or when mpv cannot start, a PreviewPlayerNull
// (the editor works without a picture) after writing why to the log.
std::unique_ptr<PreviewPlayer> makeMpvPreviewPlayer();

} // namespace lumenvale
