#pragma once

// Test support for the cut-only export: source movies made the way Lumenvale records,
// and what an exported movie really holds, read back with ffmpeg / ffprobe.

#include "EncodeChecks.h"
#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/EditDecision.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumenvale::edittest {

using testing::editKeeping;

constexpr int movieWidth = 320;
constexpr int movieHeight = 240;
constexpr int movieRate = 30;

struct SoundTrack {
    std::string lavfiSource; // e.g. "sine=frequency=440"
    std::string name;        // title and handler name; empty for none
};

// A movie encoded as Lumenvale records it: the picture (testsrc2 with a frame
// counter, 320 x 240, 30 frames a second) by the recording's own encoder settings,
// one AAC track per entry of `sound` (48 kHz, made by the ffmpeg command line).
// With `dropEvery` n > 0, every n-th frame is left out, as a capture that falls behind
// does (its time stays empty, so the average rate drops below 30).
void makeRecordingLikeMovie(const std::filesystem::path& movie, Codec codec, double seconds,
                            const std::vector<SoundTrack>& sound, int dropEvery = 0);

// One coded video packet: its presentation time, whether it is a keyframe, and the MD5
// of its bytes.
struct PacketSum {
    double timeSeconds = 0;
    bool keyframe = false;
    std::string md5;
};
std::vector<PacketSum> videoPackets(const std::filesystem::path& movie);
std::vector<double> timesOf(const std::vector<PacketSum>& packets);

// Every decoded frame of the first video stream as 8-bit luma, in presentation order.
std::vector<std::string> lumaFrames(const std::filesystem::path& movie);

// The source frames an export of `edit` must show, in output order: for every clip the
// frame shown at its start through the last frame that begins before its end, with
// the output time it must have. `sourceTimes` are the source's frame times.
struct ExpectedFrame {
    std::size_t sourceIndex = 0;
    double outputSeconds = 0;
    std::size_t clipIndex = 0;
};
std::vector<ExpectedFrame> expectedFrames(const EditDecision& edit,
                                          const std::vector<double>& sourceTimes);

// Checks that a frame encoded again still shows source frame `chosen` (luma, as
// lumaFrames gives them): close in picture quality, and nearer to it than to the two
// frames either side.
void expectEncodedFrameIs(const std::string& output, const std::vector<std::string>& sourceFrames,
                          std::size_t chosen, const std::string& what);

// Checks that every packet of the first sound track of `output` is one of `source`'s:
// the sound was copied, not encoded again.
void expectSoundCopied(const std::filesystem::path& source, const std::filesystem::path& output);

// Lines of `ffprobe -v trace` on the file that contain `text`.
int traceCount(const std::filesystem::path& movie, const std::string& text);

// The codec extradata (parameter sets) of a stream, read with libavformat.
std::string extradataOf(const std::filesystem::path& movie, int streamIndex);

} // namespace lumenvale::edittest
