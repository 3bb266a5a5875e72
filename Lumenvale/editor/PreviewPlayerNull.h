#pragma once

#include "editor/PreviewPlayer.h"

#include <optional>
#include <vector>

namespace lumenvale {

// A player that shows nothing: it keeps the position and rate a real player would
// have after the calls it received, and writes every call down so tests can check
// what the model asked for. The stand-in wherever no picture is needed (headless
// runs, tests). GUI thread only, like every PreviewPlayer.
class PreviewPlayerNull final : public PreviewPlayer {
  public:
    enum class CallKind { setPreview, seek, play, pause };

    struct Call {
        CallKind kind = CallKind::seek;
        double seconds = 0;               // seek: the target
        std::optional<EditDecision> edit; // setPreview: the edit the preview was built from
        friend bool operator==(const Call&, const Call&) = default;
    };

    void setPreview(const EditRenderer::Built& preview) override;
    void seek(double outputSeconds) override;
    void play() override;
    void pause() override;
    double rate() const override { return rate_; }
    double currentTimeSeconds() const override { return timeSeconds_; }

    const std::vector<Call>& calls() const { return calls_; }
    void clearCalls() { calls_.clear(); }
    // The preview last set, if any.
    const std::optional<EditRenderer::Built>& preview() const { return preview_; }

    // Moves the simulated playback as time passing would (a playing player advances;
    // one that reached the end reports rate 0). Not written down as a call.
    void simulate(double timeSeconds, double rate);

  private:
    std::vector<Call> calls_;
    std::optional<EditRenderer::Built> preview_;
    double rate_ = 0;
    double timeSeconds_ = 0;
};

} // namespace lumenvale
