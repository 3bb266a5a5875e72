// The GIF export against ffmpeg's two-pass palettegen / paletteuse, on 300 frames (the
// first 30 s at 10 frames a second, 640 pixels wide) of two movies: a moving 1080p test
// picture and a 720p fractal zoom in which every pixel changes. Both take the same
// source frames (every third of 30 per second) scaled with Lanczos; quality is the
// SSIM of the decoded GIF against those frames (ffmpeg's ssim filter). Prints wall and
// CPU time, bytes and SSIM, and their ratios; asserts nothing.
//
//   gif [WORK_FOLDER]     (default: $TMPDIR/lumenvale-bench-gif, movies kept for reuse)

#include "LumenvaleMedia/EditRenderer.h"
#include "support/BenchTools.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

const std::string sourceFrames =
    "select='not(mod(n\\,3))',setpts=N/10/TB,scale=640:-1:flags=lanczos";

double ssim(const fs::path& movie, const fs::path& gif) {
    const std::string text = output(
        "ffmpeg -t 30 -i " + quoted(movie) + " -i " + quoted(gif) + " -lavfi \"[0:v]" +
        sourceFrames + "[r];[1:v]format=rgb24,setpts=N/10/TB[g];[g][r]ssim\" -f null - 2>&1");
    const auto at = text.rfind("All:");
    return at == std::string::npos ? 0 : std::stod(text.substr(at + 4));
}

struct Movie {
    const char* name;
    const char* file;
    const char* source; // lavfi source
};

void compare(const fs::path& work, const Movie& movie) {
    const fs::path source = work / movie.file;
    if (!fs::exists(source)) {
        std::cout << "making " << source.filename().string() << " (once)...\n" << std::flush;
        shell("ffmpeg -v error -y -f lavfi -i " + std::string(movie.source) +
              " -t 35 -c:v libx264 -preset veryfast -crf 20 -bf 0 -g 60 -pix_fmt yuv420p " +
              quoted(work / "making.mp4"));
        fs::rename(work / "making.mp4", source);
    }
    const fs::path ours = work / "lumenvale.gif";
    const fs::path theirs = work / "ffmpeg.gif";
    const fs::path palette = work / "palette.png";
    const auto times =
        medianTimes(3, {[&] { EditRenderer::exportGIF(source, EditDecision(35), ours, {}); },
                        [&] {
                            shell("ffmpeg -v error -y -t 30 -i " + quoted(source) + " -vf \"" +
                                  sourceFrames + ",palettegen\" " + quoted(palette));
                            shell("ffmpeg -v error -y -t 30 -i " + quoted(source) + " -i " +
                                  quoted(palette) + " -lavfi \"[0:v]" + sourceFrames +
                                  "[x];[x][1:v]paletteuse\" " + quoted(theirs));
                        }});
    const double ourBytes = static_cast<double>(fs::file_size(ours));
    const double theirBytes = static_cast<double>(fs::file_size(theirs));
    const double ourSsim = ssim(source, ours);
    const double theirSsim = ssim(source, theirs);
    std::printf("gif: 300 frames of %s\n", movie.name);
    std::printf("                          wall s   cpu s      bytes    SSIM\n");
    std::printf("  Lumenvale              %7.2f %7.2f %10.0f  %.5f\n", times[0].wallSeconds,
                times[0].cpuSeconds, ourBytes, ourSsim);
    std::printf("  ffmpeg two-pass        %7.2f %7.2f %10.0f  %.5f\n", times[1].wallSeconds,
                times[1].cpuSeconds, theirBytes, theirSsim);
    std::printf("  ratio Lumenvale/ffmpeg %7.2f %7.2f %10.2f  (SSIM %+.5f; time and bytes <= 1 "
                "and SSIM > 0 wanted)\n",
                times[0].wallSeconds / times[1].wallSeconds,
                times[0].cpuSeconds / times[1].cpuSeconds, ourBytes / theirBytes,
                ourSsim - theirSsim);
    fs::remove(ours);
    fs::remove(theirs);
    fs::remove(palette);
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-gif");
    compare(work,
            {"a moving 1080p test picture", "pattern.mp4", "testsrc2=size=1920x1080:rate=30"});
    compare(work, {"a 720p fractal zoom", "fractal.mp4", "mandelbrot=size=1280x720:rate=30"});
    return 0;
}
