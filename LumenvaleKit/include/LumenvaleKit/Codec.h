#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumenvale {

// The video codec of a movie, in this order.
enum class Codec { h264, hevc };

inline constexpr std::array<Codec, 2> allCodecs{Codec::h264, Codec::hevc};

// "h264" / "hevc": the stored form in the settings.
std::string_view rawValue(Codec codec);
// Exactly "h264" or "hevc" (case-sensitive); nothing for any other text.
std::optional<Codec> codecFromRawValue(std::string_view raw);
// "H.264" / "HEVC": the label in the settings window.
std::string_view title(Codec codec);
// "avc1" / "hvc1": the codec type as written into MPEG-4 files.
std::string_view fourCC(Codec codec);
// Longest side of a movie in pixels: 4096 / 8192.
double maxLongSide(Codec codec);
// Largest pixel count of one frame: 4096 x 2304 / 8192 x 4320.
double maxPixels(Codec codec);

// The codec that will be used, given the fourCCs this machine can encode.
// h264 is always h264; hevc is hevc only when `available` holds "hvc1".
Codec resolve(Codec requested, const std::vector<std::string>& available);

} // namespace lumenvale
