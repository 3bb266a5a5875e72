#pragma once

// Copying an AAC track piece by piece. Packets are whole coded frames (1024 samples),
// so each cut lands on the frame boundary nearest the cut; the packets are laid end
// to end in the output (no gap, no overlap), and each piece starts on the packet
// that keeps the sound within half a frame of the picture, so rounding never piles
// up over many cuts. The packet before the first one kept is written too, as the
// decoder's priming frame that the file's edit list hides (a movie kept from its
// start keeps its own priming this way, exactly once).

#include "edit/CutPlan.h"
#include "edit/MovieWriter.h"

namespace lumenvale::edit {

class AudioCut final : public TrackCutter {
  public:
    // `source` is the track read; `outputStream` its stream in `writer`, added with
    // the source's time base.
    AudioCut(const AVStream* source, MovieWriter& writer, int outputStream);

    void begin(const std::optional<Place>& place) override;
    void take(AVPacket* packet) override;
    bool done() const override { return phase_ == Phase::done; }
    void end() override { phase_ = Phase::done; }
    void finish() override {}

  private:
    enum class Phase { seekingStart, copying, done };

    // The packet's duration in the stream's time base; a nominal frame's for nullptr.
    std::int64_t durationOf(const AVPacket* packet) const;
    std::int64_t inStream(std::int64_t ticks) const;
    void emit(AVPacket* packet, std::int64_t outputTimestamp);

    const AVStream* source_;
    MovieWriter& writer_;
    int outputStream_;
    Phase phase_ = Phase::done;
    std::int64_t target_ = 0;    // source timestamp the piece should start at
    std::int64_t outputEnd_ = 0; // where the piece ends in the output
    std::int64_t position_ = 0;  // output timestamp of the next packet
    bool wroteAny_ = false;
    ff::Packet previous_; // the last packet passed over, for priming
    bool hasPrevious_ = false;
};

} // namespace lumenvale::edit
