#include "Probe.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace lumenvale::testing {
namespace {

double number(const nlohmann::json& object, const char* key) {
    if (!object.contains(key)) {
        return 0;
    }
    const auto& value = object.at(key);
    if (value.is_number()) {
        return value.get<double>();
    }
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        const auto slash = text.find('/');
        if (slash != std::string::npos) {
            const double denominator = std::stod(text.substr(slash + 1));
            return denominator == 0 ? 0 : std::stod(text.substr(0, slash)) / denominator;
        }
        return text.empty() || text == "N/A" ? 0 : std::stod(text);
    }
    return 0;
}

std::map<std::string, std::string> tagsOf(const nlohmann::json& object) {
    std::map<std::string, std::string> tags;
    if (object.contains("tags")) {
        for (const auto& [key, value] : object.at("tags").items()) {
            tags[key] = value.is_string() ? value.get<std::string>() : value.dump();
        }
    }
    return tags;
}

} // namespace

std::vector<StreamInfo> MovieInfo::ofType(const std::string& codecType) const {
    std::vector<StreamInfo> result;
    for (const auto& stream : streams) {
        if (stream.codecType == codecType) {
            result.push_back(stream);
        }
    }
    return result;
}

double MovieInfo::soundPictureMismatch() const {
    const auto video = ofType("video");
    double mismatch = 0;
    for (const auto& audio : ofType("audio")) {
        mismatch = std::max(mismatch, std::abs(audio.durationSeconds -
                                               (video.empty() ? 0 : video[0].durationSeconds)));
    }
    return mismatch;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::filesystem::path> folderContents(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        names.push_back(entry.path().lexically_relative(folder));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string quoted(const std::filesystem::path& path) {
    std::string text = "'";
    for (char c : path.string()) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

std::string run(const std::string& command) {
    const std::string errors = std::filesystem::temp_directory_path() / "lumenvale-run-stderr.txt";
    FILE* pipe = popen((command + " 2>" + errors).c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run: " + command);
    }
    std::string output;
    std::array<char, 4096> buffer{};
    while (const size_t read = fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), read);
    }
    const int status = pclose(pipe);
    if (status != 0) {
        std::ostringstream message;
        message << "command failed (" << WEXITSTATUS(status) << "): " << command << "\n";
        if (FILE* log = fopen(errors.c_str(), "r")) {
            while (const size_t read = fread(buffer.data(), 1, buffer.size(), log)) {
                message.write(buffer.data(), static_cast<std::streamsize>(read));
            }
            fclose(log);
        }
        throw std::runtime_error(message.str());
    }
    return output;
}

MovieInfo probe(const std::filesystem::path& movie) {
    const auto json = nlohmann::json::parse(
        run("ffprobe -v error -count_frames -print_format json -show_format -show_streams " +
            quoted(movie)));
    MovieInfo info;
    const auto& format = json.at("format");
    info.durationSeconds = number(format, "duration");
    info.formatName = format.value("format_name", "");
    info.tags = tagsOf(format);
    for (const auto& item : json.at("streams")) {
        StreamInfo stream;
        stream.index = item.value("index", 0);
        stream.codecType = item.value("codec_type", "");
        stream.codecName = item.value("codec_name", "");
        stream.codecTag = item.value("codec_tag_string", "");
        stream.durationSeconds = number(item, "duration");
        stream.startSeconds = number(item, "start_time");
        stream.width = item.value("width", 0);
        stream.height = item.value("height", 0);
        stream.frameRate = number(item, "avg_frame_rate");
        stream.frames = static_cast<std::int64_t>(number(item, "nb_read_frames"));
        stream.channels = item.value("channels", 0);
        stream.sampleRate = static_cast<int>(number(item, "sample_rate"));
        stream.isDefault =
            item.contains("disposition") && item.at("disposition").value("default", 0) == 1;
        stream.tags = tagsOf(item);
        info.streams.push_back(stream);
    }
    return info;
}

std::vector<FrameSum> frameChecksums(const std::filesystem::path& movie) {
    const std::string text =
        run("ffmpeg -v error -i " + quoted(movie) + " -map 0:v:0 -f framemd5 -");
    std::vector<FrameSum> sums;
    std::istringstream lines(text);
    std::string line;
    double timeBase = 0;
    while (std::getline(lines, line)) {
        if (line.rfind("#tb 0:", 0) == 0) {
            const auto slash = line.find('/');
            timeBase = std::stod(line.substr(6, slash - 6)) / std::stod(line.substr(slash + 1));
            continue;
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        // stream, dts, pts, duration, size, md5
        std::vector<std::string> fields;
        std::istringstream columns(line);
        std::string field;
        while (std::getline(columns, field, ',')) {
            fields.push_back(field.substr(field.find_first_not_of(' ')));
        }
        if (fields.size() >= 6) {
            sums.push_back({std::stod(fields[2]) * timeBase, fields[5]});
        }
    }
    return sums;
}

std::vector<std::string> frameMd5s(const std::filesystem::path& movie) {
    std::vector<std::string> md5s;
    for (const FrameSum& frame : frameChecksums(movie)) {
        md5s.push_back(frame.md5);
    }
    return md5s;
}

std::vector<std::string> frameMd5s(const std::vector<std::filesystem::path>& movies) {
    std::vector<std::string> md5s;
    for (const auto& movie : movies) {
        const auto more = frameMd5s(movie);
        md5s.insert(md5s.end(), more.begin(), more.end());
    }
    return md5s;
}

std::vector<float> decodeFloats(const std::string& ffmpegArguments) {
    const std::string bytes =
        run("ffmpeg -v error " + ffmpegArguments + " -f f32le -acodec pcm_f32le -");
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

std::vector<std::string> rawFrames(const std::string& ffmpegArguments,
                                   const std::string& pixelFormat, std::size_t frameBytes) {
    const std::string bytes =
        run("ffmpeg -v error " + ffmpegArguments + " -fps_mode passthrough -f rawvideo -pix_fmt " +
            pixelFormat + " -");
    std::vector<std::string> frames;
    for (std::size_t at = 0; frameBytes > 0 && at + frameBytes <= bytes.size(); at += frameBytes) {
        frames.push_back(bytes.substr(at, frameBytes));
    }
    return frames;
}

std::vector<Box> mp4Boxes(const std::filesystem::path& movie, const std::string& path) {
    const std::string bytes = readFile(movie);
    const auto number = [&](std::uint64_t at, std::uint64_t length) {
        std::uint64_t value = 0;
        for (std::uint64_t i = at; i < at + length; ++i) {
            value = (value << 8) | static_cast<unsigned char>(bytes[i]);
        }
        return value;
    };
    // The boxes between `from` and `to`; a size of 1 is followed by a 64-bit size, 0
    // runs to the end.
    const auto boxesIn = [&](std::uint64_t from, std::uint64_t to) {
        std::vector<Box> boxes;
        while (from + 8 <= to) {
            std::uint64_t size = number(from, 4);
            if (size == 1 && from + 16 <= to) {
                size = number(from + 8, 8);
            } else if (size == 0) {
                size = to - from;
            }
            if (size < 8) {
                break;
            }
            boxes.push_back({bytes.substr(from + 4, 4), from, size});
            from += size;
        }
        return boxes;
    };
    std::vector<Box> level = boxesIn(0, bytes.size());
    std::istringstream names(path);
    for (std::string name; std::getline(names, name, '/');) {
        std::vector<Box> children;
        for (const Box& box : level) {
            if (box.type == name) {
                const auto header = number(box.offset, 4) == 1 ? 16U : 8U;
                const auto end = std::min<std::uint64_t>(box.offset + box.size, bytes.size());
                const auto inner = boxesIn(box.offset + header, end);
                children.insert(children.end(), inner.begin(), inner.end());
            }
        }
        level = std::move(children);
    }
    return level;
}

std::vector<float> audioSamples(const std::filesystem::path& movie, int audioStream,
                                double startSeconds, double durationSeconds) {
    const std::string range = durationSeconds > 0 ? "-ss " + std::to_string(startSeconds) + " -t " +
                                                        std::to_string(durationSeconds) + " "
                                                  : "";
    return decodeFloats(range + "-i " + quoted(movie) + " -map 0:a:" + std::to_string(audioStream) +
                        " -ac 1");
}

double audioRms(const std::filesystem::path& movie, int audioStream, double startSeconds,
                double durationSeconds) {
    const std::vector<float> samples =
        audioSamples(movie, audioStream, startSeconds, durationSeconds);
    if (samples.empty()) {
        return 0;
    }
    double sum = 0;
    for (const float sample : samples) {
        sum += static_cast<double>(sample) * sample;
    }
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

std::vector<AudioPacket> audioPackets(const std::filesystem::path& movie, int audioStream) {
    std::istringstream lines(
        run("ffprobe -v error -select_streams a:" + std::to_string(audioStream) +
            " -show_entries packet=pts,duration -of csv=p=0 " + quoted(movie)));
    std::vector<AudioPacket> packets;
    std::string line;
    while (std::getline(lines, line)) {
        const auto comma = line.find(',');
        if (comma == std::string::npos) {
            continue; // the empty line after a packet with side data
        }
        const std::string duration = line.substr(comma + 1);
        packets.push_back({std::stoll(line.substr(0, comma)),
                           duration.starts_with("N/A") ? -1 : std::stoll(duration)});
    }
    // The demuxer leaves out the duration of a packet that an edit list cuts into;
    // the next packet's timestamp tells it.
    for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
        if (packets[i].duration < 0) {
            packets[i].duration = packets[i + 1].pts - packets[i].pts;
        }
    }
    return packets;
}

double psnr(std::string_view a, std::string_view b) {
    if (a.size() != b.size() || a.empty()) {
        throw std::runtime_error("pictures of different sizes");
    }
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = static_cast<double>(static_cast<unsigned char>(a[i])) -
                         static_cast<unsigned char>(b[i]);
        sum += d * d;
    }
    const double mse = sum / static_cast<double>(a.size());
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

void makeMovie(const std::filesystem::path& movie, const std::string& ffmpegArguments) {
    run("ffmpeg -v error -y " + ffmpegArguments + " " + quoted(movie));
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "lumenvale-test.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary folder");
    }
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace lumenvale::testing
