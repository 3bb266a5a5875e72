// Cut-only export of a 10-minute 1080p recording, side by side with `cp` of the same
// bytes and `ffmpeg -c copy` of the whole movie. Prints times and ratios; asserts nothing.
//
//   cut [WORK_FOLDER]     (default: $TMPDIR/lumenvale-bench-cut, kept for reuse)
//
// Every run is timed with a warm page cache, after `sync`; five rounds, the median
// counts. The exports are not synced to disk (neither is cp).

#include "LumenvaleMedia/EditRenderer.h"
#include "support/BenchTools.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

EditDecision keeping(const std::vector<std::pair<double, double>>& ranges) {
    EditDecision edit(600);
    edit.clips.clear();
    for (const auto& [start, end] : ranges) {
        edit.clips.push_back(Clip::make(start, end));
    }
    return edit;
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-cut");
    const fs::path recording = tenMinuteRecording(work);
    const fs::path out = work / "out";
    const auto clean = [&] {
        fs::remove_all(out);
        fs::create_directories(out);
    };
    bool encodedInFull = false;
    const auto exportEdit = [&](const EditDecision& edit) {
        EditRenderer::exportMovie(
            recording, edit, Codec::h264, out / "edited.mp4", [](double) {}, nullptr,
            [&](const std::string&) { encodedInFull = true; });
    };
    // Whole movie; three cuts on keyframes (every 2 s); three cuts between keyframes.
    const EditDecision whole = keeping({{0, 600}});
    const EditDecision onKeyframes = keeping({{0, 100}, {130, 400}, {420, 600}});
    const EditDecision betweenKeyframes = keeping({{0, 100.5}, {131.25, 400.7}, {421.1, 600}});

    double cutBytes = 0;
    const auto medians =
        medianTimes(5,
                    {[&] { shell("cp " + quoted(recording) + " " + quoted(out)); },
                     [&] {
                         shell("ffmpeg -v error -y -i " + quoted(recording) + " -map 0 -c copy " +
                               quoted(out / "remuxed.mp4"));
                     },
                     [&] { exportEdit(whole); },
                     [&] {
                         exportEdit(onKeyframes);
                         cutBytes = static_cast<double>(fs::file_size(out / "edited.mp4"));
                     },
                     [&] {
                         exportEdit(betweenKeyframes);
                     }},
                    [&] {
                        clean();
                        ::sync();
                    });
    const double copy = medians[0].wallSeconds;
    const double remux = medians[1].wallSeconds;
    const double wholeExport = medians[2].wallSeconds;
    const double keyframeCuts = medians[3].wallSeconds;
    const double midCuts = medians[4].wallSeconds;

    const double megabytes = static_cast<double>(fs::file_size(recording)) / 1e6;
    std::printf("cut: cut-only export of a 10-minute 1080p recording, %.0f MB\n", megabytes);
    std::printf("  cp                               %7.3f s  %7.0f MB/s\n", copy, megabytes / copy);
    std::printf("  ffmpeg -c copy (whole movie)     %7.3f s  %7.0f MB/s\n", remux,
                megabytes / remux);
    std::printf("  Lumenvale, whole movie           %7.3f s  %7.0f MB/s\n", wholeExport,
                megabytes / wholeExport);
    std::printf("  Lumenvale, 2 cuts on keyframes   %7.3f s  %7.0f MB/s (%.0f MB kept)\n",
                keyframeCuts, cutBytes / 1e6 / keyframeCuts, cutBytes / 1e6);
    std::printf(
        "  Lumenvale, 2 cuts mid-GOP        %7.3f s  (frames to the next keyframe encoded)\n",
        midCuts);
    std::printf("  ratio whole movie / cp           %7.2f   (<= 1.5 wanted)\n", wholeExport / copy);
    std::printf("  ratio keyframe cuts / cp         %7.2f\n", keyframeCuts / copy);
    std::printf("  ratio mid-GOP cuts / cp          %7.2f\n", midCuts / copy);
    std::printf("  ratio whole movie / ffmpeg copy  %7.2f   (< 1: Lumenvale faster)\n",
                wholeExport / remux);
    if (encodedInFull) {
        std::printf("  WARNING: the picture was encoded in full (parameter sets did not match)\n");
    }
    fs::remove_all(out);
    return 0;
}
