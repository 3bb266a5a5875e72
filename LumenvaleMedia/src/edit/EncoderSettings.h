#pragma once

// The settings a source's encoder left in its stream, and an encoder configured from
// them. libx264 and libx265 write their options as text into an SEI message of the
// first access unit ("x264 - core ... options: cabac=1 ref=3 ..."); from those, the
// frames between a cut and the next keyframe of a movie made elsewhere can be
// encoded with parameter sets equal to the source's. Internal to the edit area; pure
// functions, callable from any thread.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace lumenvale::edit {

enum class SourceEncoder { x264, x265 };

struct EncoderSettings {
    SourceEncoder encoder = SourceEncoder::x264;
    std::vector<std::pair<std::string, std::string>> options; // in the order written
    // The value of `key`, or nullopt when the text does not name it.
    std::optional<std::string> value(const std::string& key) const;
};

// The settings found in `bytes` (an access unit or a codec's extradata, in any
// framing), or nullopt when no known encoder left them there. The text is plain
// ASCII without zero bytes, so it reads the same before and after the stream's
// emulation prevention.
std::optional<EncoderSettings> findEncoderSettings(std::span<const std::uint8_t> bytes);

// The settings as the encoder's own parameter string ("key=value:key=value", for the
// x264-params / x265-params option) reproducing what shapes the parameter sets:
// entropy coder, reference and B-frame structure, weighted prediction, transform,
// chroma QP offset, keyframe interval, rate control mode and the like. Nullopt when
// the settings hold something an encoder here cannot reproduce (interlacing, custom
// quantiser matrices, other bit depths or chroma formats).
std::optional<std::string> encoderParameters(const EncoderSettings& settings);

} // namespace lumenvale::edit
