#include "ffmpeg/Handles.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/error.h>
}

#include <system_error>

namespace lumenvale::ff {

void OutputDeleter::operator()(AVFormatContext* context) const {
    if (context == nullptr) {
        return;
    }
    if (context->pb != nullptr && (context->oformat->flags & AVFMT_NOFILE) == 0) {
        avio_closep(&context->pb);
    }
    avformat_free_context(context);
}

Frame makeFrame() {
    Frame frame(av_frame_alloc());
    if (!frame) {
        throw MediaError("Not enough memory to process the movie.");
    }
    return frame;
}

Packet makePacket() {
    Packet packet(av_packet_alloc());
    if (!packet) {
        throw MediaError("Not enough memory to process the movie.");
    }
    return packet;
}

std::string errorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

int check(int code, const std::string& doing) {
    if (code < 0) {
        throw MediaError(doing + ": " + errorText(code) + ".");
    }
    return code;
}

InputContext openInput(const std::filesystem::path& path) {
    return openInput(path, InputProbing::decodeFrames);
}

namespace {

// Whether the header gave what a stream copy needs.
bool headerDescribesStreams(const AVFormatContext& input) {
    for (unsigned index = 0; index < input.nb_streams; ++index) {
        const AVCodecParameters& codec = *input.streams[index]->codecpar;
        if (codec.codec_type == AVMEDIA_TYPE_VIDEO && (codec.width <= 0 || codec.height <= 0)) {
            return false;
        }
        if (codec.codec_type == AVMEDIA_TYPE_AUDIO &&
            (codec.sample_rate <= 0 || codec.ch_layout.nb_channels <= 0)) {
            return false;
        }
        if ((codec.codec_type == AVMEDIA_TYPE_VIDEO || codec.codec_type == AVMEDIA_TYPE_AUDIO) &&
            codec.codec_id == AV_CODEC_ID_NONE) {
            return false;
        }
    }
    return true;
}

} // namespace

InputContext openInput(const std::filesystem::path& path, InputProbing probing) {
    const std::string name = path.filename().string();
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    // Demuxers that follow references to other files or URLs are refused outright.
    av_dict_set(&options, "format_blacklist", "hls,concat,dash,ffconcat,image2,tee", 0);
    AVFormatContext* raw = nullptr;
    const int opened = avformat_open_input(&raw, path.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (opened < 0) {
        if (opened == AVERROR(ENOENT)) {
            throw MediaError("The file “" + name + "” does not exist.");
        }
        if (opened == AVERROR(EACCES)) {
            throw MediaError("The file “" + name + "” cannot be read.");
        }
        throw MediaError("The file “" + name + "” is not a movie Lumenvale can open.");
    }
    InputContext input(raw);
    if (probing == InputProbing::headerOnly && headerDescribesStreams(*input)) {
        return input;
    }
    if (avformat_find_stream_info(input.get(), nullptr) < 0) {
        throw MediaError("The file “" + name + "” is damaged or incomplete.");
    }
    return input;
}

OutputContext openOutput(const std::filesystem::path& path, const char* formatName) {
    AVFormatContext* raw = nullptr;
    check(avformat_alloc_output_context2(&raw, nullptr, formatName, path.c_str()),
          "Couldn’t create the movie");
    OutputContext output(raw);
    if ((output->oformat->flags & AVFMT_NOFILE) == 0) {
        const int opened = avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE);
        if (opened < 0) {
            throw MediaError("Couldn’t write “" + path.filename().string() + "” in “" +
                             path.parent_path().string() + "”: " + errorText(opened) + ".");
        }
    }
    return output;
}

void removePartial(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

double seconds(int64_t timestamp, AVRational timeBase) {
    return static_cast<double>(timestamp) * av_q2d(timeBase);
}

} // namespace lumenvale::ff
