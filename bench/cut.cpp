// Cut-only export of a 10-minute 1080p recording, side by side with `cp` of the same
// bytes and `ffmpeg -c copy` of the whole movie. Prints times and ratios; asserts nothing.
//
//   cut [WORK_FOLDER]     (default: $TMPDIR/lumenvale-bench-cut, kept for reuse)
//
// Every run is timed with a warm page cache, after `sync`; five rounds, the median
// counts. The exports are not synced to disk (neither is cp).

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
#include <unistd.h>
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

// Runs every variant once per round, five rounds, so a machine that gets busier or
// quieter meanwhile touches all alike; the median of each counts.
std::vector<double> medianSeconds(const std::function<void()>& prepare,
                                  const std::vector<std::function<void()>>& variants) {
    std::vector<std::vector<double>> times(variants.size());
    for (int round = 0; round < 5; ++round) {
        for (std::size_t variant = 0; variant < variants.size(); ++variant) {
            prepare();
            ::sync();
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

// The recording: one minute of a moving 1080p test picture with a frame counter,
// encoded once with the recording's own encoder settings (so the cut heads can be
// spliced) and looped by stream copy to ten minutes, with two tones of ten minutes
// (system audio and microphone). Keyframes fall every 2 s, frames on multiples of 1/30 s.
fs::path makeRecording(const fs::path& work) {
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
    const char* temporary = std::getenv("TMPDIR");
    const fs::path work =
        argc > 1 ? fs::path(argv[1])
                 : fs::path(temporary != nullptr ? temporary : "/tmp") / "lumenvale-bench-cut";
    fs::create_directories(work);
    const fs::path recording = makeRecording(work);
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
        medianSeconds(clean, {[&] { shell("cp " + quoted(recording) + " " + quoted(out)); },
                              [&] {
                                  shell("ffmpeg -v error -y -i " + quoted(recording) +
                                        " -map 0 -c copy " + quoted(out / "remuxed.mp4"));
                              },
                              [&] { exportEdit(whole); },
                              [&] {
                                  exportEdit(onKeyframes);
                                  cutBytes = static_cast<double>(fs::file_size(out / "edited.mp4"));
                              },
                              [&] {
                                  exportEdit(betweenKeyframes);
                              }});
    const double copy = medians[0];
    const double remux = medians[1];
    const double wholeExport = medians[2];
    const double keyframeCuts = medians[3];
    const double midCuts = medians[4];

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
