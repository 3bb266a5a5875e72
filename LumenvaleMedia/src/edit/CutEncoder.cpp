#include "edit/CutEncoder.h"

#include "edit/CutPlan.h"
#include "edit/ParameterSets.h"
#include "record/VideoEncoder.h"

namespace lumenvale::edit {

CutEncoders::CutEncoders(const AVStream* source, int framesPerSecond)
    : source_(source), framesPerSecond_(framesPerSecond) {}

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

ff::CodecContext CutEncoders::open() const {
    const AVCodecParameters& parameters = *source_->codecpar;
    const auto codec = codecOf(parameters);
    if (!codec) {
        return nullptr;
    }
    try {
        return record::makeVideoEncoder(*codec, {parameters.width, parameters.height},
                                        framesPerSecond_);
    } catch (const MediaError&) {
        return nullptr; // a size or rate the recording settings never make
    }
}

ff::CodecContext CutEncoders::make() {
    if (matches_ == false) {
        throw NeedsWholeEncode();
    }
    ff::CodecContext encoder = open();
    if (!matches_) {
        const AVCodecParameters& parameters = *source_->codecpar;
        matches_ = encoder != nullptr && parameters.extradata != nullptr &&
                   sameParameterSets(
                       parameters.codec_id,
                       {parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)},
                       {encoder->extradata, static_cast<std::size_t>(encoder->extradata_size)});
    }
    if (!*matches_ || !encoder) {
        throw NeedsWholeEncode();
    }
    return encoder;
}

} // namespace lumenvale::edit
