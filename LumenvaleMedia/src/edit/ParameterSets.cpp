#include "edit/ParameterSets.h"

#include <algorithm>

namespace lumenvale::edit {
namespace {

enum class UnitRole { parameterSet, delimiter, other };

UnitRole roleOf(AVCodecID codec, std::span<const std::uint8_t> unit) {
    if (unit.empty()) {
        return UnitRole::other;
    }
    if (codec == AV_CODEC_ID_H264) {
        const int type = unit[0] & 0x1F;
        if (type == 7 || type == 8 || type == 13) {
            return UnitRole::parameterSet;
        }
        return type == 9 ? UnitRole::delimiter : UnitRole::other;
    }
    if (codec == AV_CODEC_ID_HEVC) {
        const int type = (unit[0] >> 1) & 0x3F;
        if (type >= 32 && type <= 34) {
            return UnitRole::parameterSet;
        }
        return type == 35 ? UnitRole::delimiter : UnitRole::other;
    }
    return UnitRole::other;
}

// A configuration record starts with version 1; a byte stream starts with a zero
// byte of its first start code.
bool isConfigurationRecord(std::span<const std::uint8_t> extradata) {
    return !extradata.empty() && extradata[0] == 1;
}

// Splits an Annex B byte stream at its start codes (00 00 01, or 00 00 00 01).
std::vector<std::span<const std::uint8_t>> annexBUnits(std::span<const std::uint8_t> stream) {
    std::vector<std::span<const std::uint8_t>> units;
    const std::size_t size = stream.size();
    std::size_t unitStart = 0;
    bool inUnit = false;
    auto close = [&](std::size_t endExclusive) {
        while (endExclusive > unitStart && stream[endExclusive - 1] == 0) {
            --endExclusive; // trailing zero bytes belong to the next start code
        }
        if (inUnit && endExclusive > unitStart) {
            units.push_back(stream.subspan(unitStart, endExclusive - unitStart));
        }
    };
    std::size_t i = 0;
    while (i + 2 < size) {
        if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) {
            close(i);
            i += 3;
            unitStart = i;
            inUnit = true;
            continue;
        }
        ++i;
    }
    close(size);
    return units;
}

// Reads a 16-bit length followed by that many bytes; false when the record is short.
bool readSized(std::span<const std::uint8_t> record, std::size_t& at,
               std::span<const std::uint8_t>& unit) {
    if (at + 2 > record.size()) {
        return false;
    }
    const std::size_t length = (std::size_t{record[at]} << 8) | record[at + 1];
    at += 2;
    if (at + length > record.size()) {
        return false;
    }
    unit = record.subspan(at, length);
    at += length;
    return true;
}

std::vector<std::span<const std::uint8_t>> avcCUnits(std::span<const std::uint8_t> record) {
    std::vector<std::span<const std::uint8_t>> units;
    if (record.size() < 7) {
        return units;
    }
    std::size_t at = 5;
    std::span<const std::uint8_t> unit;
    const int sequenceSets = record[at++] & 0x1F;
    for (int i = 0; i < sequenceSets && readSized(record, at, unit); ++i) {
        units.push_back(unit);
    }
    if (at >= record.size()) {
        return units;
    }
    const int pictureSets = record[at++];
    for (int i = 0; i < pictureSets && readSized(record, at, unit); ++i) {
        units.push_back(unit);
    }
    // High profiles append chroma format, bit depths and SPS extensions.
    if (at + 4 <= record.size()) {
        at += 3;
        const int extensions = record[at++];
        for (int i = 0; i < extensions && readSized(record, at, unit); ++i) {
            units.push_back(unit);
        }
    }
    return units;
}

std::vector<std::span<const std::uint8_t>> hvcCUnits(std::span<const std::uint8_t> record) {
    std::vector<std::span<const std::uint8_t>> units;
    if (record.size() < 23) {
        return units;
    }
    std::size_t at = 22;
    const int arrays = record[at++];
    for (int array = 0; array < arrays && at + 3 <= record.size(); ++array) {
        ++at; // completeness flag and unit type; each unit carries its own type
        const int count = (record[at] << 8) | record[at + 1];
        at += 2;
        std::span<const std::uint8_t> unit;
        for (int i = 0; i < count && readSized(record, at, unit); ++i) {
            units.push_back(unit);
        }
    }
    return units;
}

std::vector<std::span<const std::uint8_t>> extradataUnits(AVCodecID codec,
                                                          std::span<const std::uint8_t> data) {
    if (!isConfigurationRecord(data)) {
        return annexBUnits(data);
    }
    if (codec == AV_CODEC_ID_H264) {
        return avcCUnits(data);
    }
    if (codec == AV_CODEC_ID_HEVC) {
        return hvcCUnits(data);
    }
    return {};
}

} // namespace

std::vector<Bytes> parameterSets(AVCodecID codec, std::span<const std::uint8_t> extradata) {
    std::vector<Bytes> sets;
    for (const auto unit : extradataUnits(codec, extradata)) {
        if (roleOf(codec, unit) == UnitRole::parameterSet) {
            sets.emplace_back(unit.begin(), unit.end());
        }
    }
    return sets;
}

bool sameParameterSets(AVCodecID codec, std::span<const std::uint8_t> first,
                       std::span<const std::uint8_t> second) {
    auto a = parameterSets(codec, first);
    auto b = parameterSets(codec, second);
    // A record groups the sets by type, a byte stream keeps the encoder's order.
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    return !a.empty() && a == b;
}

int nalLengthSize(AVCodecID codec, std::span<const std::uint8_t> extradata) {
    if (!isConfigurationRecord(extradata)) {
        return 4;
    }
    if (codec == AV_CODEC_ID_H264 && extradata.size() > 4) {
        return (extradata[4] & 0x03) + 1;
    }
    if (codec == AV_CODEC_ID_HEVC && extradata.size() > 21) {
        return (extradata[21] & 0x03) + 1;
    }
    return 4;
}

Bytes annexBToLengthPrefixed(AVCodecID codec, std::span<const std::uint8_t> accessUnit,
                             int lengthSize) {
    Bytes sample;
    sample.reserve(accessUnit.size() + 16);
    for (const auto unit : annexBUnits(accessUnit)) {
        if (roleOf(codec, unit) != UnitRole::other) {
            continue;
        }
        for (int shift = 8 * (lengthSize - 1); shift >= 0; shift -= 8) {
            sample.push_back(static_cast<std::uint8_t>((unit.size() >> shift) & 0xFF));
        }
        sample.insert(sample.end(), unit.begin(), unit.end());
    }
    return sample;
}

Bytes lengthPrefixed(const std::vector<Bytes>& units, int lengthSize) {
    Bytes sample;
    for (const Bytes& unit : units) {
        for (int shift = 8 * (lengthSize - 1); shift >= 0; shift -= 8) {
            sample.push_back(static_cast<std::uint8_t>((unit.size() >> shift) & 0xFF));
        }
        sample.insert(sample.end(), unit.begin(), unit.end());
    }
    return sample;
}

SequenceStart beginSequence(AVCodecID codec, std::span<std::uint8_t> sample, int lengthSize) {
    constexpr int hevcCleanRandomAccess = 21;
    constexpr int hevcBrokenLinkNoLeading = 18;
    bool marked = false;
    std::size_t at = 0;
    const auto length = static_cast<std::size_t>(lengthSize);
    while (at + length < sample.size()) {
        std::size_t size = 0;
        for (std::size_t i = 0; i < length; ++i) {
            size = (size << 8) | sample[at + i];
        }
        at += length;
        if (size == 0 || at + size > sample.size()) {
            return SequenceStart::cannot;
        }
        std::uint8_t& header = sample[at];
        at += size;
        if (codec == AV_CODEC_ID_H264) {
            const int type = header & 0x1F;
            if (type == 5) {
                return SequenceStart::begins;
            }
            if (type >= 1 && type <= 4) {
                return SequenceStart::cannot; // a slice of a picture that is not IDR
            }
        } else if (codec == AV_CODEC_ID_HEVC) {
            const int type = (header >> 1) & 0x3F;
            if (type == hevcCleanRandomAccess) {
                header =
                    static_cast<std::uint8_t>((header & 0x81) | (hevcBrokenLinkNoLeading << 1));
                marked = true; // every slice of the picture
            } else if (type >= 16 && type <= 20) {
                return SequenceStart::begins;
            } else if (type < 16) {
                return SequenceStart::cannot;
            }
        }
    }
    return marked ? SequenceStart::marked : SequenceStart::cannot;
}

} // namespace lumenvale::edit
