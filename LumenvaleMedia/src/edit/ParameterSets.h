#pragma once

// H.264 and HEVC parameter sets and NAL unit framing, for splicing freshly encoded
// frames into a stream-copied movie. Internal to the edit area; pure functions,
// callable from any thread.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace lumenvale::edit {

using Bytes = std::vector<std::uint8_t>;

// The parameter set NAL units (H.264: SPS, PPS, SPS extension; HEVC: VPS, SPS, PPS)
// held by a codec's extradata, in the order they appear. The extradata may be an
// MPEG-4 configuration record (avcC / hvcC) or an Annex B byte stream (what encoders
// produce with global headers). Empty for other codecs or unreadable data.
std::vector<Bytes> parameterSets(AVCodecID codec, std::span<const std::uint8_t> extradata);

// True when both extradata hold the same parameter sets byte for byte (framing,
// SEI and other units aside), and at least one. Then frames encoded against one
// decode correctly under the other's sample description.
bool sameParameterSets(AVCodecID codec, std::span<const std::uint8_t> first,
                       std::span<const std::uint8_t> second);

// Bytes of the length field before each NAL unit in MPEG-4 samples (1, 2 or 4), read
// from an avcC / hvcC record; 4 when the extradata is not such a record.
int nalLengthSize(AVCodecID codec, std::span<const std::uint8_t> extradata);

// An Annex B access unit (start-code framed, as encoders emit it) rewritten as an
// MPEG-4 sample: each NAL unit preceded by its length in `lengthSize` bytes. Parameter
// sets and access unit delimiters are left out: the sample description carries them.
Bytes annexBToLengthPrefixed(AVCodecID codec, std::span<const std::uint8_t> accessUnit,
                             int lengthSize);

// `units` each preceded by its length in `lengthSize` bytes, as MPEG-4 samples carry
// NAL units.
Bytes lengthPrefixed(const std::vector<Bytes>& units, int lengthSize);

// A copied keyframe that follows other frames than its own predecessors (a cut, or
// frames encoded again) must begin a new coded video sequence, or a decoder numbers
// its pictures on from the frames before it and shows them out of order. In an MPEG-4
// sample (units preceded by `lengthSize`-byte lengths): an H.264 IDR picture or HEVC
// IDR / broken link picture already does (`begins`); an HEVC clean random access
// picture is made a broken link one without leading pictures, in place (`marked`:
// its leading pictures must not follow it); any other keyframe cannot (`cannot`).
enum class SequenceStart { begins, marked, cannot };
SequenceStart beginSequence(AVCodecID codec, std::span<std::uint8_t> sample, int lengthSize);

} // namespace lumenvale::edit
