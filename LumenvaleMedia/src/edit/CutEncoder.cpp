#include "edit/CutEncoder.h"

#include "edit/CutPlan.h"
#include "edit/ParameterSets.h"
#include "record/VideoEncoder.h"

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {

CutEncoders::CutEncoders(const AVStream* source) : source_(source) {
    for (const AVRational rate : {source->r_frame_rate, source->avg_frame_rate}) {
        if (rate.num > 0 && rate.den > 0) {
            const int rounded = static_cast<int>(std::lround(av_q2d(rate)));
            if (rounded > 0 && std::find(candidateRates_.begin(), candidateRates_.end(), rounded) ==
                                   candidateRates_.end()) {
                candidateRates_.push_back(rounded);
            }
        }
    }
}

std::optional<Codec> CutEncoders::codecOf(const AVCodecParameters& parameters) {
    switch (parameters.codec_id) {
    case AV_CODEC_ID_H264:
        return Codec::h264;
    case AV_CODEC_ID_HEVC:
        return Codec::hevc;
    default:
        return std::nullopt;
    }
}

ff::CodecContext CutEncoders::open(int framesPerSecond) const {
    const AVCodecParameters& parameters = *source_->codecpar;
    const auto codec = codecOf(parameters);
    if (!codec) {
        return nullptr;
    }
    try {
        return record::makeVideoEncoder(*codec, {parameters.width, parameters.height},
                                        framesPerSecond);
    } catch (const MediaError&) {
        return nullptr; // a size or rate the recording settings never make
    }
}

bool CutEncoders::matches(const AVCodecContext& encoder) const {
    const AVCodecParameters& parameters = *source_->codecpar;
    return parameters.extradata != nullptr &&
           sameParameterSets(
               parameters.codec_id,
               {parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)},
               {encoder.extradata, static_cast<std::size_t>(std::max(0, encoder.extradata_size))});
}

ff::CodecContext CutEncoders::make() {
    if (!searched_) {
        searched_ = true;
        for (const int rate : candidateRates_) {
            ff::CodecContext encoder = open(rate);
            if (encoder && matches(*encoder)) {
                matchingRate_ = rate;
                return encoder;
            }
        }
    }
    if (!matchingRate_) {
        throw NeedsWholeEncode();
    }
    ff::CodecContext encoder = open(*matchingRate_);
    if (!encoder) {
        throw NeedsWholeEncode();
    }
    return encoder;
}

} // namespace lumenvale::edit
