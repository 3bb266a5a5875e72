#include "edit/CutEncoder.h"

#include "edit/CutPlan.h"
#include "edit/ParameterSets.h"
#include "record/VideoEncoder.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {
namespace {

bool sameRate(AVRational a, AVRational b) {
    return av_cmp_q(a, b) == 0;
}

// Where an encoder's video signal description (colours, range, chroma siting) comes
// from: the settings text (x265 prints it), or what the source's decoder read.
enum class Signal { fromText, fromSource };

// An encoder of the source's codec configured by `parameters` (the source encoder's
// own settings, or plain ones), at the source's size and level, counting `timeBase`.
ff::CodecContext openWithSettings(const AVCodecParameters& source, Codec codec,
                                  const std::string& parameters, AVRational timeBase,
                                  Signal signal) {
    const AVCodec* encoder = avcodec_find_encoder_by_name(record::videoEncoderName(codec));
    if (encoder == nullptr) {
        return nullptr;
    }
    ff::CodecContext context(avcodec_alloc_context3(encoder));
    if (!context) {
        throw MediaError("Not enough memory to encode the video.");
    }
    context->width = source.width;
    context->height = source.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = timeBase;
    context->framerate = av_inv_q(timeBase);
    context->sample_aspect_ratio = source.sample_aspect_ratio;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const bool h264 = codec == Codec::h264;
    // Frames that describe their colours otherwise than the source's are shown in
    // other colours by players that honour the description.
    if (signal == Signal::fromSource) {
        context->color_range =
            source.format == AV_PIX_FMT_YUVJ420P ? AVCOL_RANGE_JPEG : source.color_range;
        context->color_primaries = source.color_primaries;
        context->color_trc = source.color_trc;
        context->colorspace = source.color_space;
        context->chroma_sample_location = source.chroma_location;
    }
    if (h264 && source.level > 0) {
        context->level = source.level; // x264's own choice may differ from the source's
    }
    context->codec_tag = h264 ? MKTAG('a', 'v', 'c', '1') : MKTAG('h', 'v', 'c', '1');
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", h264 ? "veryfast" : "ultrafast", 0);
    av_dict_set(&options, "forced-idr", "1", 0);
    av_dict_set(&options, h264 ? "x264-params" : "x265-params", parameters.c_str(), 0);
    const int opened = avcodec_open2(context.get(), encoder, &options);
    av_dict_free(&options);
    if (opened < 0) {
        return nullptr; // settings this build of the encoder does not take
    }
    return context;
}

bool eightBitFourTwoZero(const AVCodecParameters& parameters) {
    return parameters.format == AV_PIX_FMT_YUV420P || parameters.format == AV_PIX_FMT_YUVJ420P;
}

} // namespace

CutEncoders::CutEncoders(const AVStream* source, std::optional<EncoderSettings> settings,
                         ParameterSetPlace place)
    : source_(source), place_(place) {
    std::vector<AVRational> rates;
    const std::optional<double> grid = frameGridRate(source);
    const AVRational gridRate = grid ? av_d2q(*grid, 1000) : AVRational{0, 1};
    for (const AVRational rate : {gridRate, source->r_frame_rate, source->avg_frame_rate}) {
        if (rate.num > 0 && rate.den > 0 &&
            std::none_of(rates.begin(), rates.end(),
                         [&](AVRational known) { return sameRate(known, rate); })) {
            rates.push_back(rate);
        }
    }
    const bool h264 = source->codecpar->codec_id == AV_CODEC_ID_H264;
    if (place == ParameterSetPlace::sampleDescription) {
        // Lumenvale's recordings are the common case and their settings the quickest.
        for (const AVRational rate : rates) {
            const int rounded = static_cast<int>(std::lround(av_q2d(rate)));
            if (rounded > 0 &&
                std::none_of(recipes_.begin(), recipes_.end(), [&](const Recipe& recipe) {
                    return recipe.framesPerSecond == rounded;
                })) {
                recipes_.push_back({RecipeKind::recording, {}, {0, 1}, rounded});
            }
        }
    }
    if (settings) {
        if (const auto parameters = encoderParameters(*settings)) {
            for (const AVRational rate : rates) {
                recipes_.push_back({RecipeKind::sourceSettings, *parameters, av_inv_q(rate), 0});
            }
        }
    }
    if (place == ParameterSetPlace::inBand && !rates.empty()) {
        // Quality as Lumenvale records; the source's colour description kept.
        recipes_.push_back({RecipeKind::plain, h264 ? "crf=20" : "log-level=error:crf=22",
                            av_inv_q(rates.front()), 0});
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

ff::CodecContext CutEncoders::open(const Recipe& recipe) const {
    const AVCodecParameters& parameters = *source_->codecpar;
    const auto codec = codecOf(parameters);
    if (!codec) {
        return nullptr;
    }
    if (recipe.kind != RecipeKind::recording) {
        // x265's text holds the video signal description; x264's does not.
        const bool textDescribes =
            recipe.kind == RecipeKind::sourceSettings && *codec == Codec::hevc;
        return openWithSettings(parameters, *codec, recipe.parameters, recipe.timeBase,
                                textDescribes ? Signal::fromText : Signal::fromSource);
    }
    try {
        return record::makeVideoEncoder(*codec, {parameters.width, parameters.height},
                                        recipe.framesPerSecond);
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
        for (std::size_t index = 0; index < recipes_.size(); ++index) {
            ff::CodecContext encoder = open(recipes_[index]);
            if (!encoder) {
                continue;
            }
            // In band, the first that opens is the nearest: the source's own settings
            // come before plain ones. Frames of another depth or chroma layout
            // would change the picture format in the middle of the stream.
            if (place_ == ParameterSetPlace::inBand ? eightBitFourTwoZero(*source_->codecpar)
                                                    : matches(*encoder)) {
                chosen_ = index;
                return encoder;
            }
        }
    }
    if (!chosen_) {
        if (place_ == ParameterSetPlace::sampleDescription) {
            throw NeedsInBandParameterSets();
        }
        throw NeedsWholeEncode("This movie’s picture format can’t be encoded around the cuts, "
                               "so its whole picture is encoded again.");
    }
    ff::CodecContext encoder = open(recipes_[*chosen_]);
    if (!encoder) {
        throw NeedsWholeEncode("The video encoder can’t be started again for the cuts, so the "
                               "movie’s whole picture is encoded again.");
    }
    return encoder;
}

} // namespace lumenvale::edit
