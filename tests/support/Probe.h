#pragma once

// Test support: what a written movie really holds, found by running ffprobe and
// ffmpeg on it (the tools decode independently of the code under test).

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lumenvale::testing {

struct StreamInfo {
    int index = 0;
    std::string codecType; // "video" or "audio"
    std::string codecName; // "h264", "hevc", "aac", "gif", ...
    std::string codecTag;  // "avc1", "hvc1", "mp4a", ...
    double durationSeconds = 0;
    double startSeconds = 0;
    int width = 0;
    int height = 0;
    double frameRate = 0;    // average frame rate
    std::int64_t frames = 0; // counted by decoding
    int channels = 0;
    int sampleRate = 0;
    bool isDefault = false;
    std::map<std::string, std::string> tags;
};

struct MovieInfo {
    double durationSeconds = 0;
    std::string formatName;
    std::map<std::string, std::string> tags;
    std::vector<StreamInfo> streams;

    // The streams of one type, in file order.
    std::vector<StreamInfo> ofType(const std::string& codecType) const;
    // The largest difference in seconds between an audio stream's duration and the
    // first video stream's: how far sound and picture end apart.
    double soundPictureMismatch() const;
};

// Runs a shell command; returns its standard output. Throws std::runtime_error with
// the command's standard error when it exits non-zero.
std::string run(const std::string& command);

// Quotes a path for the shell.
std::string quoted(const std::filesystem::path& path);

// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);

// Everything under `folder`, relative to it, sorted.
std::vector<std::filesystem::path> folderContents(const std::filesystem::path& folder);

// ffprobe's view of the file, frames counted by decoding every stream.
MovieInfo probe(const std::filesystem::path& movie);

// One MD5 per decoded video frame of the first video stream, in presentation order,
// each paired with its presentation time in seconds (ffmpeg -f framemd5).
struct FrameSum {
    double timeSeconds = 0;
    std::string md5;
};
std::vector<FrameSum> frameChecksums(const std::filesystem::path& movie);
// Only the MD5s of frameChecksums: what a copy of the picture must match.
std::vector<std::string> frameMd5s(const std::filesystem::path& movie);
// Those of several movies, one after the other: what a join of them must show.
std::vector<std::string> frameMd5s(const std::vector<std::filesystem::path>& movies);

// The samples ffmpeg decodes with `ffmpegArguments` (inputs, maps, filters) as 32-bit
// floats, the one way every sound check reads a movie.
std::vector<float> decodeFloats(const std::string& ffmpegArguments);

// Mono samples (channels averaged) of one audio stream (index among the audio streams,
// from 0) at its own rate: all of it, or `durationSeconds` from `startSeconds` when
// `durationSeconds` is above 0.
std::vector<float> audioSamples(const std::filesystem::path& movie, int audioStream,
                                double startSeconds = 0, double durationSeconds = 0);

// Root-mean-square level (linear, 0 ... 1) of one audio stream over
// [startSeconds, startSeconds + durationSeconds), all channels mixed.
double audioRms(const std::filesystem::path& movie, int audioStream, double startSeconds,
                double durationSeconds);

struct AudioPacket {
    std::int64_t pts = 0;      // in the stream's time base (1/48000 for Lumenvale's AAC)
    std::int64_t duration = 0; // in the same
};
// The packets of one audio stream as the demuxer reports them (with the file's edit
// lists applied, as every reader sees them), in file order.
std::vector<AudioPacket> audioPackets(const std::filesystem::path& movie, int audioStream);

// The pictures ffmpeg decodes with `ffmpegArguments` (input, maps, filters, frame
// count) as raw `pixelFormat`, each `frameBytes` long, no frame dropped or repeated:
// the one way every picture check reads a movie.
std::vector<std::string> rawFrames(const std::string& ffmpegArguments,
                                   const std::string& pixelFormat, std::size_t frameBytes);

// The boxes of an MPEG-4 file, in order: the top-level ones, or with `path` (such as
// "moov/trak/udta") the children of every box along it.
struct Box {
    std::string type; // "ftyp", "moov", "moof", "mdat", ...
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};
std::vector<Box> mp4Boxes(const std::filesystem::path& movie, const std::string& path = "");

// Peak signal-to-noise ratio in dB of two pictures given as bytes of equal layout (99
// when equal). Throws std::runtime_error when their sizes differ or they are empty.
double psnr(std::string_view a, std::string_view b);

// Makes a test movie with the ffmpeg command line: a moving test pattern with a frame
// counter, optionally with tones. `extraArguments` are inserted before the output.
// Example: makeMovie(path, "-f lavfi -i testsrc2=size=320x240:rate=30 -t 3 -c:v libx264");
void makeMovie(const std::filesystem::path& movie, const std::string& ffmpegArguments);

// A fresh empty folder under the temporary folder, removed by the destructor.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

} // namespace lumenvale::testing
