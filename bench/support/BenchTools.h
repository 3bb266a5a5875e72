#pragma once

// What every benchmark needs: shell commands, timing side by side, and the
// 10-minute recording that the cut and thumbnail benchmarks share.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace lumenvale::bench {

// `path` in single quotes for the shell.
std::string quoted(const std::filesystem::path& path);
// Runs `command`; a failure ends the benchmark with the command on standard error.
void shell(const std::string& command);
// What `command` prints on standard output.
std::string output(const std::string& command);

// CPU seconds used so far by this process and its waited-for children.
double cpuSeconds();

struct Timing {
    double wallSeconds = 0;
    double cpuSeconds = 0;
};

// Runs every variant once per round, `rounds` rounds, so a machine that gets busier or
// quieter meanwhile touches all alike; the run of median wall time of each counts.
// `beforeEach`, when given, runs untimed before every run.
std::vector<Timing> medianTimes(int rounds, const std::vector<std::function<void()>>& variants,
                                const std::function<void()>& beforeEach = {});

// The folder given as the first argument, else $TMPDIR/`name`; made when missing.
std::filesystem::path workFolder(int argc, char** argv, const std::string& name);

// One minute of a moving 1080p test picture with a frame counter, encoded once with
// the recording's own encoder settings (so cut heads can be spliced) and looped by
// stream copy to ten minutes, with two tones of ten minutes (system audio and
// microphone). Keyframes fall every 2 s, frames on multiples of 1/30 s. Made in `work`
// once and kept.
std::filesystem::path tenMinuteRecording(const std::filesystem::path& work);
// tenMinuteRecording() played six times over, copied: "hour.mp4" in `work`, made once.
std::filesystem::path oneHourRecording(const std::filesystem::path& work);

} // namespace lumenvale::bench
