// Filmstrip thumbnails of a 10-minute and a one-hour 1080p recording against ffmpeg's keyframe-only
// pass (`-skip_frame nokey`, picking the keyframes nearest to 48 equal slices with the
// fps filter and scaling to 240 pixels wide). Prints times and their ratio; asserts
// nothing.
//
//   thumbnails [WORK_FOLDER]   (default: $TMPDIR/lumenvale-bench-cut: the recording of
//                               the cut benchmark, made the same way when missing)

#include "LumenvaleMedia/EditRenderer.h"
#include "support/BenchTools.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-cut");
    constexpr int count = 48;
    for (const auto& [movie, minutes] :
         {std::pair{tenMinuteRecording(work), 10}, std::pair{oneHourRecording(work), 60}}) {
        std::size_t made = 0;
        const auto medians = medianTimes(
            5, {[&] { made = EditRenderer::thumbnails(movie, count).size(); },
                [&] {
                    shell("ffmpeg -v error -skip_frame nokey -i " + quoted(movie) +
                          " -an -vf fps=fps=" + std::to_string(count) + "/" +
                          std::to_string(minutes * 60) +
                          ":round=near,scale=240:-2:flags=fast_bilinear -frames:v " +
                          std::to_string(count) + " -f rawvideo -pix_fmt rgba -y /dev/null");
                }});
        std::printf("thumbnails: %d of a %d-minute 1080p recording\n", count, minutes);
        std::printf("  Lumenvale (%zu made)              %7.3f s\n", made, medians[0].wallSeconds);
        std::printf("  ffmpeg -skip_frame nokey pass    %7.3f s\n", medians[1].wallSeconds);
        std::printf("  ratio Lumenvale/ffmpeg           %7.3f   (< 1: Lumenvale faster; "
                    "under %s wanted)\n",
                    medians[0].wallSeconds / medians[1].wallSeconds, minutes == 60 ? "2 s" : "1 s");
    }
    return 0;
}
