#pragma once

// Checks shared by the tests of the re-encoding export, the GIF export and the
// thumbnails: pictures and sound decoded by the ffmpeg command line, independently
// of the code under test, and the test movies they are made from.

#include "Harness.h"
#include "LumenvaleKit/EditDecision.h"
#include "Probe.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::testing {

// An edit of a `seconds` long movie keeping the given source ranges in order, played
// at `speed`.
EditDecision editKeeping(double seconds, const std::vector<std::pair<double, double>>& ranges,
                         double speed = 1);

// A picture as 8-bit RGB, rows top first.
struct RgbPicture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgb;
};

// The mean red, green and blue of pixels of `channels` bytes each (red, green, blue
// first).
std::vector<double> meanColour(const std::vector<std::uint8_t>& pixels, std::size_t channels = 3);

// The pictures ffmpeg decodes with `ffmpegArguments` (see rawFrames), each `width` x
// `height`.
std::vector<RgbPicture> decodeRgb(const std::string& ffmpegArguments, int width, int height);
// Every picture of the first video stream, decoded by ffmpeg, in presentation order.
std::vector<RgbPicture> decodePictures(const std::filesystem::path& movie);
struct PictureArea {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};
// The picture shown at `seconds` (ffmpeg's accurate seek), optionally only `crop` of it.
RgbPicture pictureAt(const std::filesystem::path& movie, double seconds,
                     const std::optional<PictureArea>& crop = std::nullopt);

// Peak signal-to-noise ratio in dB of two pictures of equal size.
double psnr(const RgbPicture& a, const RgbPicture& b);

// A movie whose every frame is one flat colour that encodes its frame number (see
// frameNumberOf), `seconds` long at `framesPerSecond`, `width` x `height`;
// `encoderArguments` are added to the encoder's (for example a keyframe interval).
void makeNumberedMovie(const std::filesystem::path& movie, double seconds, int framesPerSecond,
                       int width, int height, const std::string& encoderArguments = "");
// The frame number a flat colour of makeNumberedMovie stands for.
int frameNumberOf(const std::vector<double>& colour);

// The frequency of a pure tone in Hz, from its rising zero crossings.
double toneFrequency(const std::vector<float>& samples, int sampleRate);

// The block structure of a GIF file, read byte by byte.
struct GifStructure {
    int width = 0;
    int height = 0;
    bool hasGlobalPalette = false;
    std::optional<int> loopCount; // from the NETSCAPE2.0 extension; 0 = forever
    struct Frame {
        int delayCentiseconds = -1; // -1: no graphic control extension
        bool hasOwnPalette = false;
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };
    std::vector<Frame> frames;
};
// Throws std::runtime_error when the file is not a well-formed GIF.
GifStructure readGifStructure(const std::filesystem::path& gif);

} // namespace lumenvale::testing
