#include "PassthroughMovies.h"

#include "Probe.h"
#include "ffmpeg/Handles.h"
#include "record/VideoEncoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace lumenvale::edittest {
namespace {

using testing::quoted;
using testing::run;

std::string quotedText(const std::string& text) {
    return quoted(std::filesystem::path(text));
}

constexpr std::size_t lumaBytes = std::size_t{movieWidth} * movieHeight;

// The sound tracks as one AAC file, with their names.
std::filesystem::path makeSound(const std::filesystem::path& folder, double seconds,
                                const std::vector<SoundTrack>& sound) {
    const auto path = folder / "sound.mp4";
    std::string inputs;
    std::string outputs;
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const std::string index = std::to_string(i);
        inputs += " -f lavfi -i " + quotedText(sound[i].lavfiSource);
        outputs += " -map " + index + ":a";
        if (!sound[i].name.empty()) {
            outputs += " -metadata:s:a:" + index + " title=" + quotedText(sound[i].name) +
                       " -metadata:s:a:" + index + " handler_name=" + quotedText(sound[i].name);
        }
    }
    testing::makeMovie(path, inputs + outputs + " -t " + std::to_string(seconds) +
                                 " -ar 48000 -c:a aac -b:a 128k");
    return path;
}

ff::InputContext openPlain(const std::filesystem::path& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path.string());
    }
    ff::InputContext input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return input;
}

void writeEncoded(AVFormatContext* output, AVCodecContext* encoder, AVStream* stream,
                  AVPacket* packet) {
    while (avcodec_receive_packet(encoder, packet) == 0) {
        av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
        packet->stream_index = stream->index;
        ff::check(av_interleaved_write_frame(output, packet), "test movie");
    }
}

} // namespace

void makeRecordingLikeMovie(const std::filesystem::path& movie, Codec codec, double seconds,
                            const std::vector<SoundTrack>& sound, int dropEvery) {
    testing::TemporaryFolder scratch;
    const std::string picture =
        run("ffmpeg -v error -f lavfi -i testsrc2=size=" + std::to_string(movieWidth) + "x" +
            std::to_string(movieHeight) + ":rate=" + std::to_string(movieRate) +
            ":duration=" + std::to_string(seconds) + " -f rawvideo -pix_fmt yuv420p -");

    ff::OutputContext output = ff::openOutput(movie, "mp4");
    ff::CodecContext encoder =
        record::makeVideoEncoder(codec, {movieWidth, movieHeight}, movieRate);
    AVStream* video = avformat_new_stream(output.get(), nullptr);
    ff::check(avcodec_parameters_from_context(video->codecpar, encoder.get()), "test movie");
    video->time_base = encoder->time_base;

    ff::InputContext soundInput;
    if (!sound.empty()) {
        soundInput = openPlain(makeSound(scratch.path(), seconds, sound));
        for (unsigned i = 0; i < soundInput->nb_streams; ++i) {
            const AVStream* source = soundInput->streams[i];
            AVStream* track = avformat_new_stream(output.get(), nullptr);
            ff::check(avcodec_parameters_copy(track->codecpar, source->codecpar), "test movie");
            track->codecpar->codec_tag = 0;
            track->time_base = source->time_base;
            track->disposition = i == 0 ? AV_DISPOSITION_DEFAULT : 0;
            av_dict_copy(&track->metadata, source->metadata, 0);
        }
    }
    ff::check(avformat_write_header(output.get(), nullptr), "test movie");

    ff::Packet packet = ff::makePacket();
    if (soundInput) {
        while (av_read_frame(soundInput.get(), packet.get()) >= 0) {
            const AVStream* source = soundInput->streams[packet->stream_index];
            packet->stream_index += 1; // after the video
            av_packet_rescale_ts(packet.get(), source->time_base,
                                 output->streams[packet->stream_index]->time_base);
            ff::check(av_interleaved_write_frame(output.get(), packet.get()), "test movie");
        }
    }
    ff::Frame frame = record::makeVideoFrame(*encoder);
    const std::size_t frameBytes = lumaBytes * 3 / 2;
    for (std::size_t i = 0; (i + 1) * frameBytes <= picture.size(); ++i) {
        if (dropEvery > 0 && i % static_cast<std::size_t>(dropEvery) == 1) {
            continue;
        }
        ff::check(av_frame_make_writable(frame.get()), "test movie");
        const char* planes = picture.data() + i * frameBytes;
        for (int plane = 0; plane < 3; ++plane) {
            const int width = plane == 0 ? movieWidth : movieWidth / 2;
            const int height = plane == 0 ? movieHeight : movieHeight / 2;
            for (int row = 0; row < height; ++row) {
                std::memcpy(frame->data[plane] + row * frame->linesize[plane], planes,
                            static_cast<std::size_t>(width));
                planes += width;
            }
        }
        frame->pts = static_cast<std::int64_t>(i);
        ff::check(avcodec_send_frame(encoder.get(), frame.get()), "test movie");
        writeEncoded(output.get(), encoder.get(), video, packet.get());
    }
    ff::check(avcodec_send_frame(encoder.get(), nullptr), "test movie");
    writeEncoded(output.get(), encoder.get(), video, packet.get());
    ff::check(av_write_trailer(output.get()), "test movie");
}

std::vector<PacketSum> videoPackets(const std::filesystem::path& movie) {
    const auto json = nlohmann::json::parse(
        run("ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,flags,data_hash "
            "-show_data_hash md5 -of json " +
            quoted(movie)));
    std::vector<PacketSum> packets;
    for (const auto& item : json.at("packets")) {
        packets.push_back({std::stod(item.at("pts_time").get<std::string>()),
                           item.at("flags").get<std::string>().front() == 'K',
                           item.at("data_hash").get<std::string>()});
    }
    std::sort(packets.begin(), packets.end(),
              [](const auto& a, const auto& b) { return a.timeSeconds < b.timeSeconds; });
    return packets;
}

std::vector<double> timesOf(const std::vector<PacketSum>& packets) {
    std::vector<double> times;
    for (const auto& packet : packets) {
        times.push_back(packet.timeSeconds);
    }
    return times;
}

void expectEncodedFrameIs(const std::string& output, const std::vector<std::string>& sourceFrames,
                          std::size_t chosen, const std::string& what) {
    const double quality = testing::psnr(output, sourceFrames.at(chosen));
    EXPECT_GT(quality, 30) << what;
    for (std::size_t k = chosen > 2 ? chosen - 2 : 0; k <= chosen + 2 && k < sourceFrames.size();
         ++k) {
        if (k != chosen) {
            EXPECT_GT(quality, testing::psnr(output, sourceFrames[k])) << what << ", frame " << k;
        }
    }
}

namespace {

// The MD5s of the packets of the first sound track.
std::set<std::string> soundPacketSums(const std::filesystem::path& movie) {
    std::istringstream lines(
        run("ffmpeg -v error -i " + quoted(movie) + " -map 0:a:0 -c copy -f framemd5 -"));
    std::set<std::string> sums;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        // stream, dts, pts, duration, size, MD5 of the data; side data may follow.
        std::size_t at = 0;
        for (int field = 0; field < 5; ++field) {
            at = line.find(',', at) + 1;
        }
        sums.insert(line.substr(line.find_first_not_of(' ', at), 32));
    }
    return sums;
}

} // namespace

void expectSoundCopied(const std::filesystem::path& source, const std::filesystem::path& output) {
    const auto sourceSums = soundPacketSums(source);
    const auto outputSums = soundPacketSums(output);
    EXPECT_FALSE(outputSums.empty());
    for (const auto& sum : outputSums) {
        EXPECT_EQ(sourceSums.count(sum), 1U) << "a sound packet not in the source: " << sum;
    }
}

std::vector<std::string> lumaFrames(const std::filesystem::path& movie) {
    return testing::rawFrames("-i " + quoted(movie) + " -map 0:v:0", "gray", lumaBytes);
}

std::vector<ExpectedFrame> expectedFrames(const EditDecision& edit,
                                          const std::vector<double>& sourceTimes) {
    constexpr double slack = 1e-6;
    std::vector<ExpectedFrame> frames;
    double cursor = 0;
    for (std::size_t clip = 0; clip < edit.clips.size(); ++clip) {
        const double start = edit.clips[clip].start;
        const double end = edit.clips[clip].end;
        std::size_t first = 0;
        while (first + 1 < sourceTimes.size() && sourceTimes[first + 1] <= start + slack) {
            ++first;
        }
        for (std::size_t j = first;
             j < sourceTimes.size() && (j == first || sourceTimes[j] < end - slack); ++j) {
            frames.push_back({j, cursor + std::max(0.0, sourceTimes[j] - start), clip});
        }
        cursor += end - start;
    }
    return frames;
}

int traceCount(const std::filesystem::path& movie, const std::string& text) {
    const std::string trace =
        run("sh -c " + quotedText("ffprobe -v trace " + quoted(movie) + " 2>&1"));
    int count = 0;
    for (std::size_t at = trace.find(text); at != std::string::npos;
         at = trace.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

std::string extradataOf(const std::filesystem::path& movie, int streamIndex) {
    const ff::InputContext input = openPlain(movie);
    const AVCodecParameters* parameters = input->streams[streamIndex]->codecpar;
    return {reinterpret_cast<const char*>(parameters->extradata),
            static_cast<std::size_t>(parameters->extradata_size)};
}

} // namespace lumenvale::edittest
