// Filmstrip thumbnails of a 10-minute 1080p recording against ffmpeg's keyframe-only
// pass (`-skip_frame nokey`, picking the keyframes nearest to 48 equal slices with the
// fps filter and scaling to 240 pixels wide). Prints times and their ratio; asserts
// nothing.
//
//   thumbnails [WORK_FOLDER]   (default: $TMPDIR/lumenvale-bench-cut: the recording of
//                               the cut benchmark, made the same way when missing)

#include "LumenvaleMedia/EditRenderer.h"

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;

namespace {

std::string quoted(const fs::path& path) {
    std::string text = "'";
    for (char c : path.string()) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

void shell(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::cerr << "failed: " << command << "\n";
        std::exit(1);
    }
}

// Every variant once per round, five rounds, warm page cache; the median counts.
std::vector<double> medianSeconds(const std::vector<std::function<void()>>& variants) {
    std::vector<std::vector<double>> times(variants.size());
    for (int round = 0; round < 5; ++round) {
        for (std::size_t variant = 0; variant < variants.size(); ++variant) {
            const auto start = std::chrono::steady_clock::now();
            variants[variant]();
            times[variant].push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
    }
    std::vector<double> medians;
    for (auto& runs : times) {
        std::sort(runs.begin(), runs.end());
        medians.push_back(runs[runs.size() / 2]);
    }
    return medians;
}

// The cut benchmark's recording: one minute of a moving 1080p test picture with the
// recording's encoder settings, looped by stream copy to ten minutes, with two tones.
fs::path recording(const fs::path& work) {
    const fs::path ten = work / "recording.mp4";
    if (fs::exists(ten)) {
        return ten;
    }
    std::cout << "making a 10-minute 1080p recording (once)...\n" << std::flush;
    const fs::path minute = work / "minute.mp4";
    shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30 -t 60"
          " -c:v libx264 -preset veryfast -crf 20 -profile:v high -bf 0 -g 60 -forced-idr 1"
          " -pix_fmt yuv420p -color_range tv -color_primaries smpte170m -color_trc smpte170m"
          " -colorspace smpte170m " +
          quoted(minute));
    shell("ffmpeg -v error -y -stream_loop 9 -i " + quoted(minute) +
          " -f lavfi -i sine=frequency=440:sample_rate=48000"
          " -f lavfi -i sine=frequency=660:sample_rate=48000 -t 600 -map 0:v -map 1:a -map 2:a"
          " -c:v copy -c:a aac -b:a 160k -ac:a:0 2 -ac:a:1 1 " +
          quoted(work / "looped.mp4"));
    fs::rename(work / "looped.mp4", ten);
    fs::remove(minute);
    return ten;
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const char* temporary = std::getenv("TMPDIR");
    const fs::path work =
        argc > 1 ? fs::path(argv[1])
                 : fs::path(temporary != nullptr ? temporary : "/tmp") / "lumenvale-bench-cut";
    fs::create_directories(work);
    const fs::path movie = recording(work);
    constexpr int count = 48;

    std::size_t made = 0;
    const auto medians =
        medianSeconds({[&] { made = EditRenderer::thumbnails(movie, count).size(); },
                       [&] {
                           shell("ffmpeg -v error -skip_frame nokey -i " + quoted(movie) +
                                 " -an -vf fps=fps=" + std::to_string(count) +
                                 "/600:round=near,scale=240:-2:flags=fast_bilinear -frames:v " +
                                 std::to_string(count) + " -f rawvideo -pix_fmt rgba -y /dev/null");
                       }});
    std::printf("thumbnails: %d of a 10-minute 1080p recording\n", count);
    std::printf("  Lumenvale (%zu made)              %7.3f s\n", made, medians[0]);
    std::printf("  ffmpeg -skip_frame nokey pass    %7.3f s\n", medians[1]);
    std::printf("  ratio Lumenvale/ffmpeg           %7.3f   (< 1: Lumenvale faster; "
                "under 1 s wanted)\n",
                medians[0] / medians[1]);
    return 0;
}
