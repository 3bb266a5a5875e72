#include "LumenvaleKit/Codec.h"

#include <algorithm>

namespace lumenvale {

std::string_view rawValue(Codec codec) {
    return codec == Codec::hevc ? "hevc" : "h264";
}

std::optional<Codec> codecFromRawValue(std::string_view raw) {
    for (Codec codec : allCodecs) {
        if (raw == rawValue(codec)) {
            return codec;
        }
    }
    return std::nullopt;
}

std::string_view title(Codec codec) {
    return codec == Codec::hevc ? "HEVC" : "H.264";
}

std::string_view fourCC(Codec codec) {
    return codec == Codec::hevc ? "hvc1" : "avc1";
}

double maxLongSide(Codec codec) {
    return codec == Codec::hevc ? 8192.0 : 4096.0;
}

double maxPixels(Codec codec) {
    return codec == Codec::hevc ? 8192.0 * 4320.0 : 4096.0 * 2304.0;
}

Codec resolve(Codec requested, const std::vector<std::string>& available) {
    if (requested == Codec::h264) {
        return Codec::h264;
    }
    const bool hevcOffered =
        std::find(available.begin(), available.end(), fourCC(Codec::hevc)) != available.end();
    return hevcOffered ? Codec::hevc : Codec::h264;
}

} // namespace lumenvale
