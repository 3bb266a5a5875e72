// CPU cost of recording the screen: the RecordingPipeline with CaptureX11, side by
// side with `ffmpeg -f x11grab` and the same encoder settings, each on its own Xvfb
// of the run's size: desk work at 1080p30 (text typed into a terminal, the rest of
// the screen still), and moving pictures at 1080p30, 1080p60 and 4K30. Prints CPU
// seconds per wall-clock second (100 % = one core), the run's wall time, the frames
// encoded (Lumenvale encodes a still picture only now and then: the frame before
// lasts longer), the frames missing (for Lumenvale the capture clock's frames it
// dropped; for ffmpeg, duration x fps less the frames it really captured), the bytes
// written per minute of movie, and the CPU ratio. Asserts nothing.
//
// When the encoder cannot keep up, the two behave differently: the pipeline stays on
// time and drops frames (a recording must not fall behind), ffmpeg falls behind real
// time (a wall time above the duration) and fills its output with duplicates, which
// are not counted as frames here.
//
//   record_cpu [SECONDS [h264|hevc [RUN...]]]   (default 10 seconds per run, H.264,
//                                               every run; RUN names one, "desk 1080p30")
//
// Only the recorder's own process is measured (getrusage of this process for the
// pipeline, of the child for ffmpeg); Xvfb, the animation, the terminal and the
// typing run in processes of their own, the same for both.

#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/RecordingPipeline.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>
extern "C" {
#include <libavutil/log.h>
}
#include <xcb/xcb.h>

namespace fs = std::filesystem;
using namespace lumenvale;

namespace {

// What moves on the screen while it is recorded.
enum class Scene {
    // Text typed into a terminal at about 12 characters a second; the rest still.
    deskWork,
    // Coloured bars sliding over a third of the screen at 60 steps a second.
    fullMotion,
};

struct Config {
    const char* name;
    int width;
    int height;
    int fps;
    Scene scene;
};

struct Result {
    double cpuSeconds = 0;
    double wallSeconds = 0;
    std::int64_t frames = 0;
    std::int64_t dropped = 0;
    std::int64_t captureDropped = -1; // of those, frames the capture itself could not deliver
    std::int64_t unchanged = -1;      // frames the capture found unchanged (not read)
    std::int64_t bytes = 0;           // the movie's size
    double movieSeconds = 0;
};

std::int64_t folderBytes(const fs::path& folder) {
    std::int64_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            bytes += static_cast<std::int64_t>(entry.file_size());
        }
    }
    return bytes;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double cpuOf(const rusage& usage) {
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

std::string quoted(const fs::path& path) {
    return "'" + path.string() + "'";
}

std::string output(const std::string& command) {
    std::string text;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        while (const std::size_t read = fread(buffer, 1, sizeof buffer, pipe)) {
            text.append(buffer, read);
        }
        pclose(pipe);
    }
    return text;
}

pid_t spawn(const std::vector<std::string>& arguments, const std::string& errorsTo = "/dev/null") {
    const pid_t child = ::fork();
    if (child == 0) {
        std::freopen("/dev/null", "w", stdout);
        std::freopen(errorsTo.c_str(), "w", stderr);
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    return child;
}

// Moving pictures on the root window: coloured bars sliding at 60 steps a second over
// a third of the screen, the kind of change a screen recording mostly sees.
[[noreturn]] void animate(int width, int height) {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        ::_exit(1);
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_gcontext_t context = xcb_generate_id(connection);
    xcb_create_gc(connection, context, screen->root, 0, nullptr);
    const auto start = std::chrono::steady_clock::now();
    for (std::int64_t step = 0;; ++step) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(step * 16'667));
        for (int bar = 0; bar < 24; ++bar) {
            const std::uint32_t colour =
                static_cast<std::uint32_t>((step * 37 + bar * 1237) & 0xffffff);
            xcb_change_gc(connection, context, XCB_GC_FOREGROUND, &colour);
            const xcb_rectangle_t rectangle{
                static_cast<std::int16_t>((step * 8 + bar * width / 24) % width),
                static_cast<std::int16_t>(height / 3 + bar * height / 72),
                static_cast<std::uint16_t>(width / 10), static_cast<std::uint16_t>(height / 72)};
            xcb_poly_fill_rectangle(connection, screen->root, context, 1, &rectangle);
        }
        xcb_flush(connection);
    }
}

// A terminal at the top left with the pointer resting in it (the keyboard goes
// where the pointer is when no window manager runs), and text typed into it, a
// shell line with a newline after every few words, until killed.
pid_t typeIntoTerminal(pid_t& terminal) {
    terminal = spawn({"xterm", "-geometry", "100x40+40+40", "-fa", "Monospace", "-fs", "11"});
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (!output("xdotool search --class xterm 2>/dev/null").empty()) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::system("xdotool mousemove 300 300 >/dev/null 2>&1");
    return spawn({"sh", "-c",
                  "while :; do xdotool type --delay 240 'echo the quick brown fox jumps over "
                  "the lazy dog '; xdotool key Return; done"});
}

struct Display {
    std::string name;
    pid_t server = -1;
    pid_t animation = -1;
    pid_t terminal = -1;
};

Display startDisplay(const Config& config, int number) {
    Display display;
    display.name = ":" + std::to_string(number);
    display.server =
        spawn({"Xvfb", display.name, "-screen", "0",
               std::to_string(config.width) + "x" + std::to_string(config.height) + "x24",
               "-nolisten", "tcp", "+extension", "MIT-SHM", "+extension", "Composite", "+extension",
               "RANDR", "+extension", "XFIXES"});
    ::setenv("DISPLAY", display.name.c_str(), 1);
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (std::system("xdpyinfo >/dev/null 2>&1") == 0) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (config.scene == Scene::deskWork) {
        display.animation = typeIntoTerminal(display.terminal);
    } else {
        display.animation = ::fork();
        if (display.animation == 0) {
            animate(config.width, config.height);
        }
    }
    return display;
}

void stopDisplay(const Display& display) {
    for (const pid_t pid : {display.animation, display.terminal, display.server}) {
        if (pid > 0) {
            ::kill(pid, SIGTERM);
            ::waitpid(pid, nullptr, 0);
        }
    }
}

Result recordWithPipeline(const Config& config, Codec codec, const fs::path& folder,
                          double duration) {
    CaptureRequest request;
    request.fps = config.fps;
    request.size = {config.width, config.height};
    request.ownWindows = OwnWindows::shown;
    RecordingSources sources;
    auto capture = std::make_unique<CaptureX11>(request);
    const CaptureX11& captureStats = *capture;
    sources.video = std::move(capture);
    RecordingPipeline pipeline(std::move(sources), codec, folder, LocalDateTime{}, {});
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    const auto start = std::chrono::steady_clock::now();
    pipeline.start();
    std::this_thread::sleep_for(std::chrono::duration<double>(duration));
    const CaptureStats capturedStats = captureStats.stats();
    pipeline.stop();
    const auto end = std::chrono::steady_clock::now();
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    const RecordingStats stats = pipeline.stats();
    return {cpuOf(after) - cpuOf(before), std::chrono::duration<double>(end - start).count(),
            stats.framesWritten,          stats.framesDropped,
            capturedStats.dropped,        capturedStats.unchanged,
            folderBytes(folder),          stats.writtenSeconds};
}

// ffmpeg's encoder tuning: none (the comparison's baseline), or Lumenvale's own
// short look-ahead and frame-sharing threads.
enum class Tune { none, lumenvale };

// The same settings as record::makeVideoEncoder (src/record/VideoEncoder.h), with or
// without its tuning.
std::vector<std::string> encoderArguments(Codec codec, int fps, Tune tune) {
    const std::string gop = std::to_string(2 * fps);
    std::vector<std::string> arguments =
        codec == Codec::hevc
            ? std::vector<
                  std::string>{"-c:v",
                               "libx265",
                               "-preset",
                               "superfast",
                               "-crf",
                               "22",
                               "-profile:v",
                               "main",
                               "-x265-params",
                               tune == Tune::lumenvale
                                   ? "bframes=0:rc-lookahead=1:frame-threads=1:log-level=error"
                                   : "bframes=0:log-level=error",
                               "-g",
                               gop,
                               "-tag:v",
                               "hvc1"}
            : std::vector<std::string>{"-c:v",       "libx264", "-preset", "veryfast", "-crf", "20",
                                       "-profile:v", "high",    "-g",      gop,        "-bf",  "0"};
    if (tune == Tune::lumenvale && codec != Codec::hevc) {
        arguments.insert(arguments.end(),
                         {"-x264-params", "rc-lookahead=1:sync-lookahead=0:sliced-threads=1"});
    }
    return arguments;
}

Result recordWithFfmpeg(const Config& config, Codec codec, Tune tune, const Display& display,
                        const fs::path& movie, double duration) {
    const fs::path log = movie.string() + ".log";
    std::vector<std::string> arguments{"ffmpeg",
                                       "-y",
                                       "-nostdin",
                                       "-f",
                                       "x11grab",
                                       "-framerate",
                                       std::to_string(config.fps),
                                       "-video_size",
                                       std::to_string(config.width) + "x" +
                                           std::to_string(config.height),
                                       "-i",
                                       display.name,
                                       "-t",
                                       std::to_string(duration)};
    for (const std::string& argument : encoderArguments(codec, config.fps, tune)) {
        arguments.push_back(argument);
    }
    for (const char* argument :
         {"-pix_fmt", "yuv420p", "-color_range", "tv", "-colorspace", "smpte170m",
          "-color_primaries", "smpte170m", "-color_trc", "smpte170m", "-stats_period", "0.5",
          "-movflags", "+frag_keyframe+empty_moov+default_base_moof"}) {
        arguments.emplace_back(argument);
    }
    arguments.push_back(movie.string());
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = spawn(arguments, log.string());
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    const auto end = std::chrono::steady_clock::now();
    Result result{cpuOf(usage), std::chrono::duration<double>(end - start).count(), 0, 0};
    result.frames = std::atoll(output("ffprobe -v error -count_packets -select_streams v:0 "
                                      "-show_entries stream=nb_read_packets -of csv=p=0 " +
                                      quoted(movie))
                                   .c_str());
    // ffmpeg keeps the output's frame rate by encoding a frame again where the grab
    // came late ("dup=" in its statistics): those are not captured frames.
    std::ifstream in(log);
    const std::string errors((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
    const auto duplicated = errors.rfind("dup=");
    if (duplicated != std::string::npos) {
        result.frames -= std::atoll(errors.c_str() + duplicated + 4);
    }
    result.dropped = static_cast<std::int64_t>(duration * config.fps) - result.frames;
    result.bytes = static_cast<std::int64_t>(fs::file_size(movie));
    result.movieSeconds = duration;
    return result;
}

void print(const char* who, const Result& result) {
    std::printf("  %-20s CPU %6.1f %% of a core for %5.1f s   encoded %5lld   missing %5lld", who,
                100 * result.cpuSeconds / result.wallSeconds, result.wallSeconds,
                static_cast<long long>(result.frames), static_cast<long long>(result.dropped));
    if (result.captureDropped >= 0) {
        std::printf("   (capture dropped %lld, unchanged %lld)",
                    static_cast<long long>(result.captureDropped),
                    static_cast<long long>(result.unchanged));
    }
    if (result.movieSeconds > 0) {
        std::printf("   %.1f MB a minute",
                    static_cast<double>(result.bytes) / 1e6 * 60 / result.movieSeconds);
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const double duration = argc > 1 ? std::atof(argv[1]) : 10;
    const Codec codec = argc > 2 ? codecFromRawValue(argv[2]).value_or(Codec::h264) : Codec::h264;
    const fs::path work =
        fs::temp_directory_path() / ("lumenvale-bench-record-" + std::to_string(::getpid()));
    fs::create_directories(work);
    std::vector<Config> configs{{"desk 1080p30", 1920, 1080, 30, Scene::deskWork},
                                {"1080p30", 1920, 1080, 30, Scene::fullMotion},
                                {"1080p60", 1920, 1080, 60, Scene::fullMotion},
                                {"4K30", 3840, 2160, 30, Scene::fullMotion}};
    if (argc > 3) {
        const std::vector<std::string> wanted(argv + 3, argv + argc);
        std::erase_if(configs, [&](const Config& config) {
            return std::find(wanted.begin(), wanted.end(), config.name) == wanted.end();
        });
    }
    std::printf("record_cpu: %g s per run, %s, %u cores\n", duration,
                codec == Codec::hevc ? "HEVC ultrafast CRF 22" : "H.264 veryfast CRF 20",
                std::thread::hardware_concurrency());
    std::fflush(stdout); // before the children are forked
    int displayNumber = 140;
    while (fs::exists("/tmp/.X11-unix/X" + std::to_string(displayNumber)) ||
           fs::exists("/tmp/.X" + std::to_string(displayNumber) + "-lock")) {
        ++displayNumber;
    }
    for (const Config& config : configs) {
        const Display display = startDisplay(config, displayNumber);
        const fs::path folder = work / config.name;
        fs::create_directories(folder);
        Result ours;
        try {
            ours = recordWithPipeline(config, codec, folder, duration);
        } catch (const std::exception& error) {
            std::printf("%s: the pipeline failed: %s\n", config.name, error.what());
        }
        const Result theirs =
            recordWithFfmpeg(config, codec, Tune::none, display,
                             work / (std::string(config.name) + "-ffmpeg.mp4"), duration);
        const Result tuned =
            recordWithFfmpeg(config, codec, Tune::lumenvale, display,
                             work / (std::string(config.name) + "-ffmpeg-tuned.mp4"), duration);
        stopDisplay(display);
        std::fflush(stdout);
        std::printf("%s\n", config.name);
        print("Lumenvale pipeline", ours);
        print("ffmpeg -f x11grab", theirs);
        print("  tuned as Lumenvale", tuned);
        const auto load = [](const Result& result) {
            return result.cpuSeconds / result.wallSeconds;
        };
        if (theirs.cpuSeconds > 0 && tuned.cpuSeconds > 0) {
            std::printf(
                "  CPU ratio Lumenvale / ffmpeg: %.2f (/ ffmpeg tuned as Lumenvale: %.2f)\n",
                load(ours) / load(theirs), load(ours) / load(tuned));
        }
        std::fflush(stdout);
    }
    fs::remove_all(work);
    return 0;
}
