// Joining three parts of a 10-minute 1080p recording, side by side with `cp` of the
// same bytes and `ffmpeg -f concat -c copy`. Prints times and ratios; asserts nothing.
//
//   join [WORK_FOLDER]     (default: $TMPDIR/lumenvale-bench-join, kept for reuse)
//
// Every run is timed with a warm page cache (the parts were just read or written), after
// `sync`, three times; the median counts.

#include "LumenvaleMedia/RecordingFiles.h"
#include "files/Joiner.h"
#include "files/MovieFile.h"
#include "files/PartInput.h"
#include "support/BenchTools.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

// Three runs, each after `prepare` and `sync`; the median counts.
double medianSeconds(const std::function<void()>& prepare, const std::function<void()>& work) {
    return medianTimes(3, {work},
                       [&] {
                           prepare();
                           ::sync();
                       })[0]
        .wallSeconds;
}

// The recording: one minute of a moving 1080p test picture with a frame counter and two
// tones, encoded once and looped by stream copy to ten minutes, then cut at keyframes
// into three fragmented parts laid out like part files.
std::vector<fs::path> makeParts(const fs::path& work) {
    const std::vector<fs::path> parts = {work / "part-1.mp4", work / "part-2.mp4",
                                         work / "part-3.mp4"};
    if (std::all_of(parts.begin(), parts.end(), [](const fs::path& p) { return fs::exists(p); })) {
        return parts;
    }
    std::cout << "making a 10-minute 1080p recording (once)...\n" << std::flush;
    const fs::path minute = work / "minute.mp4";
    shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30 -f lavfi -i "
          "sine=frequency=440:sample_rate=48000"
          " -f lavfi -i sine=frequency=660:sample_rate=48000 -t 60 -map 0:v -map 1:a -map 2:a -c:v "
          "libx264"
          " -preset veryfast -b:v 8M -maxrate 10M -bufsize 16M -bf 0 -g 60 -pix_fmt yuv420p -c:a "
          "aac -b:a 160k"
          " -ac:a:0 2 -ac:a:1 1 " +
          quoted(minute));
    const fs::path ten = work / "ten-minutes.mp4";
    shell("ffmpeg -v error -y -stream_loop 9 -i " + quoted(minute) + " -map 0 -c copy " +
          quoted(ten));
    shell(
        "ffmpeg -v error -y -i " + quoted(ten) +
        " -map 0 -c copy -f segment -segment_times 200,400 -reset_timestamps 1 -segment_format mp4"
        " -segment_format_options movflags=frag_keyframe+empty_moov+delay_moov+default_base_moof " +
        quoted(work / "part-%d.mp4"));
    fs::rename(work / "part-0.mp4", work / "part-tmp.mp4");
    fs::rename(work / "part-2.mp4", parts[2]);
    fs::rename(work / "part-1.mp4", parts[1]);
    fs::rename(work / "part-tmp.mp4", parts[0]);
    fs::remove(minute);
    fs::remove(ten);
    return parts;
}

void joinCached(const std::vector<fs::path>& paths, const fs::path& folder) {
    std::vector<std::unique_ptr<files::PartInput>> parts;
    for (const auto& path : paths) {
        parts.push_back(std::make_unique<files::PartInput>(path));
    }
    files::MovieFile file(folder, "joined");
    files::writeJoined(parts, file, files::moovPlacementFor(parts));
    file.finish(files::Durability::cached);
    file.publishAs(folder / "joined.mp4", files::Durability::cached);
}

} // namespace

int main(int argc, char** argv) {
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-join");
    const std::vector<fs::path> parts = makeParts(work);
    std::uintmax_t bytes = 0;
    for (const auto& part : parts) {
        bytes += fs::file_size(part);
    }
    const fs::path out = work / "out";
    const auto clean = [&] {
        fs::remove_all(out);
        fs::create_directories(out);
    };
    std::string concatList;
    for (const auto& part : parts) {
        concatList += "file " + quoted(part) + "\n";
    }
    {
        FILE* list = std::fopen((work / "concat.txt").c_str(), "w");
        std::fputs(concatList.c_str(), list);
        std::fclose(list);
    }

    const double copy = medianSeconds(clean, [&] {
        shell("cp " + quoted(parts[0]) + " " + quoted(parts[1]) + " " + quoted(parts[2]) + " " +
              quoted(out));
    });
    const double copySynced = medianSeconds(clean, [&] {
        shell("cp " + quoted(parts[0]) + " " + quoted(parts[1]) + " " + quoted(parts[2]) + " " +
              quoted(out));
        ::sync();
    });
    const double concat = medianSeconds(clean, [&] {
        shell("ffmpeg -v error -y -f concat -safe 0 -i " + quoted(work / "concat.txt") +
              " -map 0 -c copy " + quoted(out / "concat.mp4"));
    });
    const double joined = medianSeconds(clean, [&] { joinCached(parts, out); });
    const double joinedSynced =
        medianSeconds(clean, [&] { RecordingFiles::join(parts, out / "joined.mp4"); });
    // One part saved the way a recording without pauses is: remux, sync, read back, poster.
    double single = 0;
    single = medianSeconds(
        [&] {
            clean();
            fs::copy_file(parts[0], out / "single-part.mp4");
        },
        [&] {
            RecordingFiles::save({out / "single-part.mp4"}, out,
                                 LocalDateTime{2026, 1, 1, 12, 0, 0});
        });

    const double megabytes = static_cast<double>(bytes) / 1e6;
    std::printf("join: 3 parts of a 10-minute 1080p recording, %.0f MB\n", megabytes);
    std::printf("  cp (3 files)                 %7.3f s  %7.0f MB/s\n", copy, megabytes / copy);
    std::printf("  cp + sync                    %7.3f s  %7.0f MB/s\n", copySynced,
                megabytes / copySynced);
    std::printf("  ffmpeg -f concat -c copy     %7.3f s  %7.0f MB/s\n", concat, megabytes / concat);
    std::printf("  Lumenvale join (no sync)     %7.3f s  %7.0f MB/s\n", joined, megabytes / joined);
    std::printf("  Lumenvale join (synced)      %7.3f s  %7.0f MB/s\n", joinedSynced,
                megabytes / joinedSynced);
    std::printf("  ratio join / cp rate         %7.2f   (>= 0.8 wanted)\n", copy / joined);
    std::printf("  ratio synced join / cp+sync  %7.2f\n", copySynced / joinedSynced);
    std::printf("  ratio join / ffmpeg concat   %7.2f   (> 1: Lumenvale faster)\n",
                concat / joined);
    std::printf("  save of one part (%3.0f MB, remux + sync + poster): %.3f s\n",
                static_cast<double>(fs::file_size(parts[0])) / 1e6, single);
    fs::remove_all(out);
    return 0;
}
