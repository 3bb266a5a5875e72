#include "PartMaker.h"

#include "LumenvaleKit/Uuid.h"
#include "Probe.h"
#include "ffmpeg/Handles.h"

#include <cstring>
#include <sstream>
#include <stdexcept>

namespace lumenvale::testing {
namespace {

void require(int code, const char* doing) {
    if (code < 0) {
        throw std::runtime_error(std::string(doing) + ": " + ff::errorText(code));
    }
}

struct PartOutput {
    ff::OutputContext context;
    std::filesystem::path path;
    std::int64_t videoStart = 0; // source video pts of the part's first frame
    std::int64_t audioStart = 0; // the same moment in 48 kHz samples
};

} // namespace

void makeRecording(const std::filesystem::path& movie, int width, int height, double seconds,
                   const std::vector<int>& extraKeyframes) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    // A forced keyframe lands on the first frame at or after the time given.
    std::string forced;
    for (int frame : extraKeyframes) {
        forced +=
            (forced.empty() ? " -force_key_frames " : ",") + std::to_string((frame - 0.5) / 30);
    }
    makeMovie(
        movie,
        "-f lavfi -i testsrc2=size=" + size +
            ":rate=30 -f lavfi -i sine=frequency=440:sample_rate=48000"
            " -f lavfi -i sine=frequency=660:sample_rate=48000 -t " +
            std::to_string(seconds) +
            " -map 0:v -map 1:a -map 2:a -c:v libx264 -preset ultrafast -bf 0 -g 30" + forced +
            " -pix_fmt yuv420p -c:a aac -b:a 128k -ac:a:0 2 -ac:a:1 1"
            " -metadata:s:a:0 title='System audio' -metadata:s:a:0 handler_name='System audio'"
            " -metadata:s:a:1 title=Microphone -metadata:s:a:1 handler_name=Microphone"
            " -disposition:a:0 default -disposition:a:1 0");
}

std::vector<std::filesystem::path> splitIntoParts(const std::filesystem::path& recording,
                                                  const std::filesystem::path& folder,
                                                  const std::vector<double>& cutSeconds,
                                                  const PartOptions& options) {
    ff::InputContext input = ff::openInput(recording);
    const int video = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    require(video, "no video");
    const AVRational videoBase = input->streams[video]->time_base;

    // The keyframes the parts start at.
    std::vector<std::int64_t> starts = {0};
    ff::Packet packet = ff::makePacket();
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const std::size_t next = starts.size() - 1;
        if (packet->stream_index == video && (packet->flags & AV_PKT_FLAG_KEY) != 0 &&
            next < cutSeconds.size() &&
            ff::seconds(packet->pts, videoBase) >= cutSeconds[next] - 1e-6) {
            starts.push_back(packet->pts);
        }
        av_packet_unref(packet.get());
    }
    input = ff::openInput(recording); // from the very first packet, the audio's priming

    std::vector<PartOutput> parts(starts.size());
    for (std::size_t k = 0; k < parts.size(); ++k) {
        PartOutput& part = parts[k];
        part.path = folder / ("Lumenvale-" + Uuid::random().text() + ".mp4");
        part.videoStart = starts[k];
        part.audioStart = av_rescale_q(starts[k], videoBase, {1, 48000});
        part.context = ff::openOutput(part.path, "mp4");
        AVFormatContext& out = *part.context;
        av_dict_set(&out.metadata, "lumenvale_recording", options.recordingID.c_str(), 0);
        av_dict_set(&out.metadata, "lumenvale_part", std::to_string(k + 1).c_str(), 0);
        av_dict_set(&out.metadata, "lumenvale_started", options.started.c_str(), 0);
        if (options.clock == AudioClock::partRelativeTagged) {
            av_dict_set(&out.metadata, "lumenvale_audio_offset",
                        std::to_string(part.audioStart).c_str(), 0);
        }
        for (unsigned index = 0; index < input->nb_streams; ++index) {
            const AVStream* in = input->streams[index];
            AVStream* stream = avformat_new_stream(&out, nullptr);
            require(avcodec_parameters_copy(stream->codecpar, in->codecpar), "copy parameters");
            stream->codecpar->codec_tag = 0;
            stream->time_base = in->time_base;
            stream->disposition = in->disposition;
            av_dict_copy(&stream->metadata, in->metadata, 0);
        }
        AVDictionary* muxing = nullptr;
        if (options.clock == AudioClock::continuous) {
            av_dict_set(&muxing, "movflags",
                        "frag_keyframe+empty_moov+default_base_moof+frag_discont+use_metadata_tags",
                        0);
            av_dict_set(&muxing, "avoid_negative_ts", "disabled", 0);
        } else {
            av_dict_set(&muxing, "movflags",
                        "frag_keyframe+empty_moov+delay_moov+default_base_moof+use_metadata_tags",
                        0);
        }
        const int header = avformat_write_header(&out, &muxing);
        av_dict_free(&muxing);
        require(header, "write header");
    }

    const auto partAt = [&](double seconds) {
        std::size_t k = 0;
        while (k + 1 < parts.size() &&
               seconds >= ff::seconds(parts[k + 1].videoStart, videoBase) - 1e-9) {
            ++k;
        }
        return k;
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const AVStream* in = input->streams[packet->stream_index];
        // A writer with a part-relative clock hands each audio packet to the part being
        // fed when it leaves the encoder, two packets after its samples went in.
        const bool audio = packet->stream_index != video;
        const double encoderDelay =
            audio && options.clock != AudioClock::continuous ? 2048.0 / 48000 : 0;
        const std::size_t k = partAt(ff::seconds(packet->pts, in->time_base) + encoderDelay);
        if (audio && options.lastPartSoundless && k + 1 == parts.size()) {
            continue;
        }
        PartOutput& part = parts[k];
        if (!audio) {
            packet->pts -= part.videoStart;
            packet->dts -= part.videoStart;
        } else if (options.clock != AudioClock::continuous) {
            const std::int64_t shift = av_rescale_q(part.audioStart, {1, 48000}, in->time_base);
            packet->pts -= shift;
            packet->dts -= shift;
        }
        AVStream* out = part.context->streams[packet->stream_index];
        av_packet_rescale_ts(packet.get(), in->time_base, out->time_base);
        packet->pos = -1;
        require(av_interleaved_write_frame(part.context.get(), packet.get()), "write packet");
    }
    std::vector<std::filesystem::path> paths;
    for (std::size_t k = 0; k < parts.size(); ++k) {
        const bool interrupted = options.lastPartInterrupted && k + 1 == parts.size();
        if (!interrupted) {
            require(av_write_trailer(parts[k].context.get()), "write trailer");
        } else {
            avio_flush(parts[k].context->pb);
        }
        parts[k].context.reset();
        paths.push_back(parts[k].path);
    }
    return paths;
}

} // namespace lumenvale::testing
