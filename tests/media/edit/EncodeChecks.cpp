#include "EncodeChecks.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace lumenvale::testing {
namespace {

std::pair<int, int> pictureSize(const std::filesystem::path& movie) {
    const std::string text = run("ffprobe -v error -select_streams v:0 -show_entries "
                                 "stream=width,height -of csv=p=0 " +
                                 quoted(movie));
    int width = 0;
    int height = 0;
    char comma = 0;
    std::istringstream(text) >> width >> comma >> height;
    return {width, height};
}

} // namespace

EditDecision editKeeping(double seconds, const std::vector<std::pair<double, double>>& ranges,
                         double speed) {
    EditDecision edit(seconds);
    edit.clips.clear();
    for (const auto& [start, end] : ranges) {
        edit.clips.push_back(Clip::make(start, end));
    }
    edit.speed = speed;
    return edit;
}

std::vector<double> meanColour(const std::vector<std::uint8_t>& pixels, std::size_t channels) {
    std::vector<double> sums(3, 0.0);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        if (i % channels < 3) {
            sums[i % channels] += pixels[i];
        }
    }
    for (double& sum : sums) {
        sum /= static_cast<double>(pixels.size() / channels);
    }
    return sums;
}

std::vector<RgbPicture> decodeRgb(const std::string& ffmpegArguments, int width, int height) {
    std::vector<RgbPicture> pictures;
    for (const std::string& bytes :
         rawFrames(ffmpegArguments, "rgb24", static_cast<std::size_t>(width * height * 3))) {
        pictures.push_back({width, height, {bytes.begin(), bytes.end()}});
    }
    return pictures;
}

std::vector<RgbPicture> decodePictures(const std::filesystem::path& movie) {
    const auto [width, height] = pictureSize(movie);
    return decodeRgb("-i " + quoted(movie) + " -map 0:v:0", width, height);
}

RgbPicture pictureAt(const std::filesystem::path& movie, double seconds,
                     const std::optional<PictureArea>& crop) {
    auto [width, height] = pictureSize(movie);
    std::string filter;
    if (crop) {
        filter = " -vf crop=" + std::to_string(crop->width) + ":" + std::to_string(crop->height) +
                 ":" + std::to_string(crop->x) + ":" + std::to_string(crop->y);
        width = crop->width;
        height = crop->height;
    }
    const auto pictures = decodeRgb("-ss " + std::to_string(seconds) + " -i " + quoted(movie) +
                                        filter + " -frames:v 1",
                                    width, height);
    if (pictures.empty()) {
        throw std::runtime_error("no picture at " + std::to_string(seconds) + " s");
    }
    return pictures[0];
}

double psnr(const RgbPicture& a, const RgbPicture& b) {
    return psnr(std::string_view(reinterpret_cast<const char*>(a.rgb.data()), a.rgb.size()),
                std::string_view(reinterpret_cast<const char*>(b.rgb.data()), b.rgb.size()));
}

void makeNumberedMovie(const std::filesystem::path& movie, double seconds, int framesPerSecond,
                       int width, int height, const std::string& encoderArguments) {
    // Frame n: red 16 x (n mod 16), green 16 x (n / 16 mod 16), blue 32 + 16 x (n / 256).
    makeMovie(movie, "-f lavfi -i \"nullsrc=s=" + std::to_string(width) + "x" +
                         std::to_string(height) + ":r=" + std::to_string(framesPerSecond) +
                         ",format=gbrp,geq=r='16*mod(N\\,16)':g='16*mod(floor(N/16)\\,16)':"
                         "b='32+16*floor(N/256)'\" -t " +
                         std::to_string(seconds) +
                         " -c:v libx264 -preset veryfast -crf 12 -pix_fmt yuv420p " +
                         encoderArguments);
}

int frameNumberOf(const std::vector<double>& colour) {
    const auto step = [](double value) {
        return static_cast<int>(std::lround(value / 16.0));
    };
    return step(colour[0]) + 16 * step(colour[1]) + 256 * step(colour[2] - 32.0);
}

double toneFrequency(const std::vector<float>& samples, int sampleRate) {
    std::size_t first = 0;
    std::size_t last = 0;
    int crossings = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (samples[i - 1] < 0 && samples[i] >= 0) {
            if (crossings == 0) {
                first = i;
            }
            last = i;
            ++crossings;
        }
    }
    if (crossings < 2) {
        return 0;
    }
    return (crossings - 1) * static_cast<double>(sampleRate) / static_cast<double>(last - first);
}

GifStructure readGifStructure(const std::filesystem::path& gif) {
    std::ifstream file(gif, std::ios::binary);
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                          std::istreambuf_iterator<char>());
    std::size_t at = 0;
    const auto need = [&](std::size_t count) {
        if (at + count > bytes.size()) {
            throw std::runtime_error("the GIF ends early");
        }
    };
    const auto word = [&](std::size_t offset) {
        return bytes[offset] | bytes[offset + 1] << 8;
    };
    const auto skipSubBlocks = [&]() {
        for (need(1); bytes[at] != 0; need(1)) {
            at += std::size_t{1} + bytes[at];
        }
        ++at;
    };
    need(13);
    if (std::string(bytes.begin(), bytes.begin() + 6) != "GIF89a") {
        throw std::runtime_error("not a GIF89a file");
    }
    GifStructure gifInfo;
    gifInfo.width = word(6);
    gifInfo.height = word(8);
    gifInfo.hasGlobalPalette = (bytes[10] & 0x80) != 0;
    at = 13;
    if (gifInfo.hasGlobalPalette) {
        at += std::size_t{3} << ((bytes[10] & 7u) + 1u);
    }
    int pendingDelay = -1;
    while (true) {
        need(1);
        const std::uint8_t kind = bytes[at++];
        if (kind == 0x3B) {
            return gifInfo;
        }
        if (kind == 0x21) {
            need(2);
            const std::uint8_t label = bytes[at++];
            if (label == 0xF9) {
                need(6);
                pendingDelay = word(at + 2);
                at += std::size_t{1} + bytes[at];
            } else if (label == 0xFF) {
                need(12);
                const bool netscape =
                    std::string(bytes.begin() + static_cast<std::ptrdiff_t>(at + 1),
                                bytes.begin() + static_cast<std::ptrdiff_t>(at + 12)) ==
                    "NETSCAPE2.0";
                at += std::size_t{1} + bytes[at];
                if (netscape) {
                    need(4);
                    gifInfo.loopCount = word(at + 2);
                }
            }
            skipSubBlocks();
        } else if (kind == 0x2C) {
            need(9);
            GifStructure::Frame frame;
            frame.x = word(at);
            frame.y = word(at + 2);
            frame.width = word(at + 4);
            frame.height = word(at + 6);
            frame.hasOwnPalette = (bytes[at + 8] & 0x80) != 0;
            frame.delayCentiseconds = pendingDelay;
            if (frame.hasOwnPalette) {
                at += std::size_t{3} << ((bytes[at + 8] & 7u) + 1u);
            }
            at += 9 + 1; // descriptor, then the LZW minimum code size
            skipSubBlocks();
            gifInfo.frames.push_back(frame);
            pendingDelay = -1;
        } else {
            throw std::runtime_error("unknown GIF block");
        }
    }
}

} // namespace lumenvale::testing
