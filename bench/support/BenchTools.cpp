#include "BenchTools.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/resource.h>

namespace fs = std::filesystem;

namespace lumenvale::bench {

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

std::string output(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        std::cerr << "failed: " << command << "\n";
        std::exit(1);
    }
    std::array<char, 4096> buffer{};
    while (const std::size_t read = fread(buffer.data(), 1, buffer.size(), pipe)) {
        text.append(buffer.data(), read);
    }
    pclose(pipe);
    return text;
}

double cpuSeconds() {
    double total = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        total += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                 static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
    return total;
}

std::vector<Timing> medianTimes(int rounds, const std::vector<std::function<void()>>& variants,
                                const std::function<void()>& beforeEach) {
    std::vector<std::vector<Timing>> runs(variants.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t variant = 0; variant < variants.size(); ++variant) {
            if (beforeEach) {
                beforeEach();
            }
            const double cpuBefore = cpuSeconds();
            const auto start = std::chrono::steady_clock::now();
            variants[variant]();
            runs[variant].push_back(
                {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                 cpuSeconds() - cpuBefore});
        }
    }
    std::vector<Timing> medians;
    for (auto& timings : runs) {
        std::sort(timings.begin(), timings.end(),
                  [](const Timing& a, const Timing& b) { return a.wallSeconds < b.wallSeconds; });
        medians.push_back(timings[timings.size() / 2]);
    }
    return medians;
}

fs::path workFolder(int argc, char** argv, const std::string& name) {
    const char* temporary = std::getenv("TMPDIR");
    const fs::path work =
        argc > 1 ? fs::path(argv[1]) : fs::path(temporary != nullptr ? temporary : "/tmp") / name;
    fs::create_directories(work);
    return work;
}

fs::path tenMinuteRecording(const fs::path& work) {
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

fs::path oneHourRecording(const fs::path& work) {
    const fs::path hour = work / "hour.mp4";
    if (fs::exists(hour)) {
        return hour;
    }
    const fs::path ten = tenMinuteRecording(work);
    std::cout << "making a one-hour 1080p recording (once)...\n" << std::flush;
    shell("ffmpeg -v error -y -stream_loop 5 -i " + quoted(ten) + " -map 0 -c copy -t 3600 " +
          quoted(work / "hour-looped.mp4"));
    fs::rename(work / "hour-looped.mp4", hour);
    return hour;
}

} // namespace lumenvale::bench
