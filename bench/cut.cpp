// Cut-only export of a 10-minute 1080p recording, side by side with `cp` of the same
// bytes and `ffmpeg -c copy` of the whole movie; then of 10 s 720p movies made by the
// ffmpeg command line with libx264 (not by Lumenvale), side by side with ffmpeg
// encoding the same edit. Prints times, ratios and the share of video packets copied
// byte for byte; asserts nothing.
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

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

EditDecision keeping(const std::vector<std::pair<double, double>>& ranges,
                     double sourceSeconds = 600) {
    EditDecision edit(sourceSeconds);
    edit.clips.clear();
    for (const auto& [start, end] : ranges) {
        edit.clips.push_back(Clip::make(start, end));
    }
    return edit;
}

// One line per video packet of `movie`: its MD5.
std::vector<std::string> packetSums(const fs::path& movie) {
    std::vector<std::string> sums;
    const std::string text = output("ffprobe -v error -select_streams v:0 -show_entries "
                                    "packet=data_hash -show_data_hash md5 -of csv=p=0 " +
                                    quoted(movie));
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end == std::string::npos ? end : end - at);
        if (!line.empty()) {
            sums.push_back(line);
        }
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return sums;
}

// A 10 s 720p movie as the ffmpeg command line makes it with libx264 (B-frames, its
// own settings), with `gop` frames between keyframes; two cuts between keyframes.
// Lumenvale's export against ffmpeg encoding the same edit (libx264, default preset).
void foreignMovie(const fs::path& work, int gop) {
    const fs::path movie = work / ("foreign-gop" + std::to_string(gop) + ".mp4");
    if (!fs::exists(movie)) {
        shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=1280x720:rate=30 -f lavfi"
              " -i sine=frequency=440:sample_rate=48000 -t 10 -c:v libx264 -g " +
              std::to_string(gop) + " -pix_fmt yuv420p -c:a aac " + quoted(movie));
    }
    const fs::path out = work / "out";
    fs::create_directories(out);
    const EditDecision edit = keeping({{0.5, 3.5}, {5.25, 9.6}}, 10);
    std::string status = "none";
    const std::string ffmpegEdit =
        "ffmpeg -v error -y -i " + quoted(movie) +
        " -filter_complex \"[0:v]trim=0.5:3.5,setpts=PTS-STARTPTS[v0];"
        "[0:v]trim=5.25:9.6,setpts=PTS-STARTPTS[v1];[0:a]atrim=0.5:3.5,asetpts=PTS-STARTPTS[a0];"
        "[0:a]atrim=5.25:9.6,asetpts=PTS-STARTPTS[a1];[v0][a0][v1][a1]concat=n=2:v=1:a=1[v][a]\""
        " -map [v] -map [a] -c:v libx264 -c:a aac " +
        quoted(out / "ffmpeg.mp4");
    const auto medians =
        medianTimes(3,
                    {[&] {
                         EditRenderer::exportMovie(
                             movie, edit, Codec::h264, out / "edited.mp4", [](double) {}, nullptr,
                             [&](const std::string& sentence) { status = sentence; });
                         fs::rename(out / "edited.mp4", out / "kept.mp4");
                     },
                     [&] {
                         shell(ffmpegEdit);
                     }},
                    [&] { fs::remove(out / "edited.mp4"); });
    const auto sourceSums = packetSums(movie);
    const auto outputSums = packetSums(out / "kept.mp4");
    std::size_t copied = 0;
    for (const auto& sum : outputSums) {
        if (std::find(sourceSums.begin(), sourceSums.end(), sum) != sourceSums.end()) {
            ++copied;
        }
    }
    std::printf("cut: a 10 s 720p movie by ffmpeg/libx264 (B-frames, a keyframe every %d "
                "frames), two cuts between keyframes\n",
                gop);
    std::printf("  video packets copied byte for byte  %zu of %zu (%.0f %%)\n", copied,
                outputSums.size(),
                outputSums.empty()
                    ? 0.0
                    : 100.0 * static_cast<double>(copied) / static_cast<double>(outputSums.size()));
    std::printf("  Lumenvale                           %7.3f s\n", medians[0].wallSeconds);
    std::printf("  ffmpeg encoding the same edit       %7.3f s\n", medians[1].wallSeconds);
    std::printf("  ratio Lumenvale / ffmpeg            %7.2f   (< 1: Lumenvale faster)\n",
                medians[0].wallSeconds / medians[1].wallSeconds);
    std::printf("  status                              %s\n", status.c_str());
    fs::remove_all(out);
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
    // x264's default keyframe interval (250), and one of 2 s as cameras and phones use.
    foreignMovie(work, 250);
    foreignMovie(work, 60);
    return 0;
}
