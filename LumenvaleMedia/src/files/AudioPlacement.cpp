#include "files/AudioPlacement.h"

#include <algorithm>
#include <cstdlib>

namespace lumenvale::files {

AudioPlacement::AudioPlacement(std::int64_t packetTicks)
    : packetTicks_(std::max<std::int64_t>(1, packetTicks)) {}

void AudioPlacement::beginPart(std::int64_t firstClaim, std::optional<std::int64_t> secondClaim,
                               std::int64_t videoAlignedFirst, std::int64_t partStart) {
    const std::int64_t snap = packetTicks_ / 2;
    // The encoder's delay (priming plus a partly filled frame) is under two packets:
    // a restarted part that lands that close to the previous audio joins it.
    const std::int64_t encoderDelay = 2 * packetTicks_;
    const std::int64_t reference = end_.value_or(partStart);
    const auto behind = [&](std::int64_t claim) {
        return claim < reference - (end_ ? snap : encoderDelay);
    };
    if (!behind(firstClaim)) {
        shift_ = 0;
        return;
    }
    if (secondClaim && !behind(*secondClaim)) {
        // Only the first packet is out of line (a muxer that pins a fragment's first
        // sample to zero): the part continues; that packet takes its place in line.
        shift_ = 0;
        return;
    }
    shift_ = videoAlignedFirst - firstClaim;
    if (end_ &&
        (videoAlignedFirst < *end_ || std::llabs(videoAlignedFirst - *end_) <= encoderDelay)) {
        shift_ = *end_ - firstClaim;
    }
}

std::int64_t AudioPlacement::place(std::int64_t claim, std::int64_t durationTicks) {
    std::int64_t time = claim + shift_;
    if (end_ && (time < *end_ || time - *end_ <= packetTicks_ / 2)) {
        time = *end_; // in line with the previous packet: no gap, no overlap
    }
    end_ = time + std::max<std::int64_t>(1, durationTicks);
    return time;
}

} // namespace lumenvale::files
