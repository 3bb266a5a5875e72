#pragma once

// Where the audio packets of one track land on a joined movie's timeline. Pure logic,
// no FFmpeg: times are integer ticks of the track's time base.
//
// The part writer keeps one audio encoder running for the whole recording, so the
// packets of all parts, in order, are one continuous stream with the encoder's
// priming only at the very start. Each part claims a time for its packets; the claim
// is trusted when it continues the previous part's audio, so nothing is added or lost
// at a join. A part whose claims restart (its audio time counts from its own start,
// not the recording's) is placed next to its own video instead, and when that lands
// within a few packets of the previous audio's end it is joined to it seamlessly:
// the difference is the encoder's delay, not a real gap.

#include <cstdint>
#include <optional>

namespace lumenvale::files {

class AudioPlacement {
  public:
    // `packetTicks`: the usual packet length (1024 samples for AAC). Claims within half
    // a packet of the previous end count as continuing it.
    explicit AudioPlacement(std::int64_t packetTicks);

    // Starts a part. `firstClaim` and `secondClaim` are the times its first two
    // packets claim (`secondClaim` absent for a part with one packet);
    // `videoAlignedFirst` is where the first packet belongs if the part's audio time
    // is relative to the part's own video, which starts at `partStart` on the movie's
    // timeline.
    void beginPart(std::int64_t firstClaim, std::optional<std::int64_t> secondClaim,
                   std::int64_t videoAlignedFirst, std::int64_t partStart);

    // The movie time of a packet of the current part claiming `claim` and lasting
    // `durationTicks`. Times never go backwards: a packet that would overlap the
    // previous one follows it instead.
    std::int64_t place(std::int64_t claim, std::int64_t durationTicks);

    // The end of the last placed packet; absent before the first.
    std::optional<std::int64_t> end() const { return end_; }

    // The shift of the current part (movie time minus claimed time), for tests.
    std::int64_t shift() const { return shift_; }

  private:
    std::int64_t packetTicks_;
    std::int64_t shift_ = 0;
    std::optional<std::int64_t> end_;
};

} // namespace lumenvale::files
