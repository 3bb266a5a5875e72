#include "record/VideoEncoder.h"

#include "LumenvaleMedia/RecordingPipeline.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <string>

namespace lumenvale::record {

namespace {

bool encoderPresent(const char* name) {
    return avcodec_find_encoder_by_name(name) != nullptr;
}

void setOption(AVCodecContext* context, const char* key, const std::string& value) {
    ff::check(av_opt_set(context->priv_data, key, value.c_str(), 0),
              "The video encoder refused the setting " + std::string(key));
}

} // namespace

const char* videoEncoderName(Codec codec) {
    return codec == Codec::hevc ? "libx265" : "libx264";
}

ff::CodecContext makeVideoEncoder(Codec codec, PixelSize size, int fps) {
    const char* name = videoEncoderName(codec);
    const AVCodec* encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr) {
        throw MediaError("This system can’t encode " + std::string(title(codec)) + " video.");
    }
    if (size.width < 2 || size.height < 2 || size.width % 2 != 0 || size.height % 2 != 0 ||
        size.width > 16384 || size.height > 16384 || fps < 1 || fps > 240) {
        throw MediaError("The video size " + std::to_string(size.width) + " × " +
                         std::to_string(size.height) + " at " + std::to_string(fps) +
                         " frames a second can’t be encoded.");
    }
    ff::CodecContext context(avcodec_alloc_context3(encoder));
    if (!context) {
        throw MediaError("Not enough memory to encode the video.");
    }
    context->width = static_cast<int>(size.width);
    context->height = static_cast<int>(size.height);
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = AVRational{1, fps};
    context->framerate = AVRational{fps, 1};
    context->sample_aspect_ratio = AVRational{1, 1};
    context->gop_size = keyframeIntervalFramesAt(fps);
    context->max_b_frames = 0;
    context->color_range = AVCOL_RANGE_MPEG;
    context->color_primaries = AVCOL_PRI_SMPTE170M;
    context->color_trc = AVCOL_TRC_SMPTE170M;
    context->colorspace = AVCOL_SPC_SMPTE170M;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (codec == Codec::hevc) {
        context->codec_tag = MKTAG('h', 'v', 'c', '1');
        setOption(context.get(), "preset", "ultrafast");
        setOption(context.get(), "crf", "22");
        setOption(context.get(), "profile", "main");
        setOption(context.get(), "forced-idr", "1");
        setOption(context.get(), "x265-params",
                  "bframes=0:rc-lookahead=1:frame-threads=1:log-level=error");
    } else {
        context->codec_tag = MKTAG('a', 'v', 'c', '1');
        setOption(context.get(), "preset", "veryfast");
        setOption(context.get(), "crf", "20");
        setOption(context.get(), "profile", "high");
        setOption(context.get(), "forced-idr", "1");
        setOption(context.get(), "x264-params", "rc-lookahead=1:sync-lookahead=0:sliced-threads=1");
    }
    ff::check(avcodec_open2(context.get(), encoder, nullptr),
              "Couldn’t start the " + std::string(title(codec)) + " encoder");
    return context;
}

ff::Frame makeVideoFrame(const AVCodecContext& encoder) {
    ff::Frame frame = ff::makeFrame();
    frame->format = encoder.pix_fmt;
    frame->width = encoder.width;
    frame->height = encoder.height;
    frame->color_range = encoder.color_range;
    frame->color_primaries = encoder.color_primaries;
    frame->color_trc = encoder.color_trc;
    frame->colorspace = encoder.colorspace;
    ff::check(av_frame_get_buffer(frame.get(), 0), "Not enough memory to encode the video");
    return frame;
}

} // namespace lumenvale::record

namespace lumenvale {

std::vector<std::string> availableVideoFourCCs() {
    std::vector<std::string> fourCCs;
    for (Codec codec : allCodecs) {
        if (record::encoderPresent(record::videoEncoderName(codec))) {
            fourCCs.emplace_back(fourCC(codec));
        }
    }
    return fourCCs;
}

} // namespace lumenvale
