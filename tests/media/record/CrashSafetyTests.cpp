// A recording process killed with SIGKILL leaves a part that plays up to about a
// second before the kill, and the part is locked only while it is being written.

#include "Harness.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

// Runs in the child process: records into `folder` until it is killed.
[[noreturn]] void recordUntilKilled(const std::filesystem::path& folder) {
    try {
        RecordingPipeline pipeline(counterSources(true), Codec::h264, folder,
                                   LocalDateTime{2022, 2, 2, 2, 2, 2}, {});
        pipeline.start();
        for (;;) {
            ::pause();
        }
    } catch (...) {
        ::_exit(3);
    }
}

// The child is this test program started again with the variable set: it records
// before any test runs. (A plain fork would not do: PulseAudio's client library
// refuses to work in a forked child of a process that has used it.)
class RecordUntilKilledWhenAsked : public ::testing::Environment {
  public:
    void SetUp() override {
        if (const char* folder = std::getenv(recordUntilKilledVariable)) {
            recordUntilKilled(folder);
        }
    }
};

[[maybe_unused]] const auto* const childMode =
    ::testing::AddGlobalTestEnvironment(new RecordUntilKilledWhenAsked);

// Whether another open file description can take the part's lock right now.
bool lockIsFree(const std::filesystem::path& part) {
    const int fd = ::open(part.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return free;
}

TEST(CrashSafety, AKilledRecordingLeavesAllButAboutASecond) {
    TemporaryFolder folder;
    ChildProcess child({"/proc/self/exe", "--gtest_filter=CrashSafety.*"},
                       {std::string(recordUntilKilledVariable) + "=" + folder.path().string()});
    ASSERT_TRUE(child.started());
    std::filesystem::path part;
    ASSERT_TRUE(waitUntil(
        [&] {
            for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
                if (entry.path().filename().string().starts_with("Lumenvale-")) {
                    part = entry.path(); // not the hidden name it is made under
                }
            }
            return !part.empty();
        },
        10s))
        << "the child never created its part";
    const auto created = std::chrono::steady_clock::now();
    { Tone speakers("lumenvale_speakers", 440, 3.5); }
    EXPECT_FALSE(lockIsFree(part)) << "a part is locked while it is written";
    const double recordedSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - created).count();
    const int status = child.kill(SIGKILL);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child ended by itself with " << WEXITSTATUS(status);
    EXPECT_TRUE(lockIsFree(part)) << "the lock goes with the process";

    const MovieInfo info = probe(part);
    EXPECT_EQ(info.tags.at("lumenvale_part"), "1");
    EXPECT_EQ(info.tags.at("lumenvale_started"), "2022-02-02T02:02:02");
    const auto video = info.ofType("video");
    ASSERT_EQ(video.size(), 1u);
    const double videoSeconds = static_cast<double>(video[0].frames) / 30;
    EXPECT_GT(videoSeconds, recordedSeconds - 1.7) << "at most a fragment and the encoder's delay";
    EXPECT_LE(videoSeconds, recordedSeconds + 0.1);
    const std::vector<std::int64_t> counters = frameCounters(part);
    ASSERT_FALSE(counters.empty());
    EXPECT_EQ(counters.front(), 0);
    EXPECT_EQ(counters.back() + 1, static_cast<std::int64_t>(counters.size()));

    const auto audio = info.ofType("audio");
    ASSERT_EQ(audio.size(), 1u);
    EXPECT_GT(audio[0].durationSeconds, videoSeconds - 0.6);
    EXPECT_GT(audioRms(part, 0, 0.5, videoSeconds - 1), 0.2) << "the tone is in what survived";
}

// What a kill leaves of a part is what the writer has handed to the file so far, so a
// copy taken at a moment stands for it (the fdatasync after each fragment is what
// makes a power cut leave as much).
TEST(CrashSafety, APartIsOnDiskSoonAfterItStartsAndWholeWhilePaused) {
    TemporaryFolder folder;
    TemporaryFolder copies;
    RecordingPipeline pipeline(counterSources(true), Codec::h264, folder.path(), LocalDateTime{},
                               {});
    const std::filesystem::path part = pipeline.start();
    std::this_thread::sleep_for(1500ms);
    std::filesystem::copy_file(part, copies / "early.mp4");
    std::this_thread::sleep_for(1000ms);
    pipeline.pause();
    std::this_thread::sleep_for(1000ms); // longer than a late source is waited for
    std::filesystem::copy_file(part, copies / "paused.mp4");
    pipeline.stop();

    std::vector<std::int64_t> early;
    EXPECT_NO_THROW(early = frameCounters(copies / "early.mp4"));
    EXPECT_FALSE(early.empty()) << "a part killed 1.5 s after it started holds a fragment";
    std::vector<std::int64_t> paused;
    EXPECT_NO_THROW(paused = frameCounters(copies / "paused.mp4"));
    EXPECT_EQ(paused, frameCounters(part)) << "a paused part has all its frames on disk";
    // And its sound, but for the encoders' last packets, held for the next part.
    const std::vector<AudioPacket> packets = audioPackets(copies / "paused.mp4", 0);
    ASSERT_FALSE(packets.empty());
    EXPECT_GT(static_cast<double>(packets.back().pts + packets.back().duration) / 48000,
              static_cast<double>(paused.size()) / 30 - 0.07);
}

} // namespace
} // namespace lumenvale::testing
