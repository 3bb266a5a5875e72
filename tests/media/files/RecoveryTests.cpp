// Crash recovery: parts left behind are found, grouped, joined and named after their
// recording; parts in use and files that are not movies are left alone.

#include "LumenvaleMedia/Recovery.h"
#include "PartMaker.h"
#include "Probe.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale {
namespace {

using testing::frameMd5s;

class RecoveryTest : public ::testing::Test {
  protected:
    void SetUp() override { testing::makeRecording(parts_ / "recording.mp4", 320, 240, 8); }

    testing::TemporaryFolder parts_;
    testing::TemporaryFolder movies_;
};

// Where the power went out while the last part's third fragment was being written.
enum class Cut { insideTheSamples, insideTheFragmentHeader };

class KilledRecordingTest : public RecoveryTest, public ::testing::WithParamInterface<Cut> {};

TEST_P(KilledRecordingTest, IsSavedUpToTheCut) {
    // Parts of 2, 2 and 4 seconds; the writer of the last one was killed, so its last
    // fragment never reached the file, and then the file was cut.
    const auto split = testing::splitIntoParts(
        parts_ / "recording.mp4", parts_.path(), {2, 4},
        {.clock = testing::AudioClock::partRelativeTagged, .lastPartInterrupted = true});
    std::filesystem::remove(parts_ / "recording.mp4");
    const auto whole = frameMd5s(split);
    const std::size_t firstTwo = frameMd5s({split[0], split[1]}).size();
    std::vector<testing::Box> fragments;
    for (const testing::Box& box : testing::mp4Boxes(split[2])) {
        if (box.type == "moof") {
            fragments.push_back(box);
        }
    }
    ASSERT_EQ(fragments.size(), 3u) << "a fragment a second, the last one lost";
    const testing::Box& third = fragments[2];
    std::filesystem::resize_file(split[2], GetParam() == Cut::insideTheFragmentHeader
                                               ? third.offset + third.size / 2
                                               : std::filesystem::file_size(split[2]) - 2000);

    const RecoveryResult result = Recovery::recoverAll(parts_.path(), movies_.path());

    ASSERT_EQ(result.recovered.size(), 1u);
    EXPECT_TRUE(result.failures.empty());
    EXPECT_TRUE(result.unusable.empty());
    const Recording& movie = result.recovered[0];
    EXPECT_EQ(movie.path, movies_ / "Lumenvale Recording 2025-03-04 at 05.06.07.mp4");
    EXPECT_EQ(Recovery::notice(movie), "Recovered a recording that was interrupted: "
                                       "Lumenvale Recording 2025-03-04 at 05.06.07.mp4");
    const auto recovered = frameMd5s(movie.path);
    // Every frame of the whole fragments, then what the cut fragment still holds.
    if (GetParam() == Cut::insideTheFragmentHeader) {
        EXPECT_EQ(recovered.size(), firstTwo + 60);
    } else {
        EXPECT_GT(recovered.size(), firstTwo + 60);
    }
    ASSERT_LE(recovered.size(), whole.size());
    EXPECT_TRUE(std::equal(recovered.begin(), recovered.end(), whole.begin()));
    ASSERT_EQ(movie.partDurations.size(), 3u);
    EXPECT_NEAR(movie.durationSeconds, static_cast<double>(recovered.size()) / 30, 0.05);
    EXPECT_LE(testing::probe(movie.path).soundPictureMismatch(), 1024.0 / 48000)
        << "sound and picture end together";
    for (const auto& part : split) {
        EXPECT_FALSE(std::filesystem::exists(part));
    }
    EXPECT_TRUE(Recovery::find(parts_.path()).recordings.empty());
}

INSTANTIATE_TEST_SUITE_P(Cuts, KilledRecordingTest,
                         ::testing::Values(Cut::insideTheSamples, Cut::insideTheFragmentHeader));

TEST_F(RecoveryTest, PictureWhoseSoundNeverReachedTheDiskIsLeftOut) {
    // Quick pauses and resumes just before a kill: the last part's picture reached its
    // file, none of its sound did (it leaves the encoder later).
    const auto split = testing::splitIntoParts(
        parts_ / "recording.mp4", parts_.path(), {2, 5},
        {.clock = testing::AudioClock::partRelativeTagged, .lastPartSoundless = true});
    const auto firstTwo = frameMd5s({split[0], split[1]});

    const RecoveryResult result = Recovery::recoverAll(parts_.path(), movies_.path());

    ASSERT_EQ(result.recovered.size(), 1u);
    const Recording& movie = result.recovered[0];
    // The first two parts' frames, up to the frame edge nearest their sound's end.
    const auto recovered = frameMd5s(movie.path);
    EXPECT_GE(recovered.size() + 1, firstTwo.size());
    ASSERT_LE(recovered.size(), firstTwo.size());
    EXPECT_TRUE(std::equal(recovered.begin(), recovered.end(), firstTwo.begin()));
    EXPECT_EQ(movie.partDurations.size(), 2u);
    EXPECT_LE(testing::probe(movie.path).soundPictureMismatch(), 1024.0 / 48000)
        << "sound and picture end together";
}

TEST_F(RecoveryTest, ARecordingWithALockedPartIsLeftAlone) {
    const auto finished =
        testing::splitIntoParts(parts_ / "recording.mp4", parts_.path(), {3},
                                {.recordingID = "11111111-2222-4333-8444-555555555555"});
    const auto running = testing::splitIntoParts(
        parts_ / "recording.mp4", parts_.path(), {3},
        {.recordingID = "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", .started = "2025-03-04T06:00:00"});
    std::filesystem::remove(parts_ / "recording.mp4");
    // Its writer holds the current part.
    const int writer = ::open(running[1].c_str(), O_RDONLY);
    ASSERT_EQ(::flock(writer, LOCK_EX | LOCK_NB), 0);

    const RecoveryScan scan = Recovery::find(parts_.path());
    ASSERT_EQ(scan.recordings.size(), 1u);
    EXPECT_EQ(scan.recordings[0].parts, finished);
    EXPECT_EQ(scan.recordings[0].recordingID, Uuid::parse("11111111-2222-4333-8444-555555555555"));

    const RecoveryResult result = Recovery::recoverAll(parts_.path(), movies_.path());
    EXPECT_EQ(result.recovered.size(), 1u);
    for (const auto& part : running) {
        EXPECT_TRUE(std::filesystem::exists(part)) << "the running recording is untouched";
    }
    ::close(writer);
    EXPECT_EQ(Recovery::find(parts_.path()).recordings.size(), 1u)
        << "found once its writer is gone";
}

// A part killed before its first fragment (empty, or an MPEG-4 header without samples)
// or stopped before its first frame holds nothing: recovery removes it without a word,
// unless its writer still holds it.
TEST_F(RecoveryTest, PartsThatHoldNothingAreRemovedQuietlyUnlessTheirWriterLives) {
    const auto part = testing::splitIntoParts(parts_ / "recording.mp4", parts_.path(), {}).front();
    std::filesystem::remove(parts_ / "recording.mp4");
    const std::vector<testing::Box> boxes = testing::mp4Boxes(part);
    ASSERT_GE(boxes.size(), 3u);
    ASSERT_EQ(boxes[1].type, "moov");
    ASSERT_EQ(boxes[2].type, "moof");
    const std::string bytes = testing::readFile(part);
    std::filesystem::remove(part);
    const auto leftover = [&](char last, std::uint64_t length) {
        const auto path =
            parts_ / (std::string("Lumenvale-00000000-0000-4000-8000-00000000000") + last + ".mp4");
        std::ofstream(path, std::ios::binary) << bytes.substr(0, length);
        return path;
    };
    std::vector<std::filesystem::path> nothing{leftover('1', 0), leftover('2', boxes[1].offset),
                                               leftover('3', boxes[2].offset)};
    const auto writing = leftover('4', 0);
    const int writer = ::open(writing.c_str(), O_RDONLY);
    ASSERT_EQ(::flock(writer, LOCK_EX | LOCK_NB), 0);

    std::vector<std::filesystem::path> found = Recovery::find(parts_.path()).leftovers;
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, nothing);
    const RecoveryResult result = Recovery::recoverAll(parts_.path(), movies_.path());
    EXPECT_TRUE(result.recovered.empty());
    EXPECT_EQ(result.failures, std::vector<std::string>{});
    EXPECT_TRUE(result.unusable.empty());
    for (const auto& file : nothing) {
        EXPECT_FALSE(std::filesystem::exists(file)) << file;
    }
    EXPECT_TRUE(std::filesystem::exists(writing));
    ::close(writer);
}

TEST_F(RecoveryTest, TemporaryMoviesOfCrashedSavesAreRemovedButNotThoseBeingWritten) {
    const auto crashed = movies_ / ".Lumenvale Recording 2025-03-04 at 05.06.07-0A1B2C3D.partial";
    const auto writing = movies_ / ".Lumenvale Recording 2025-03-04 at 06.00.00-4E5F6A7B.partial";
    const auto someoneElses = movies_ / ".cache.partial";
    for (const auto& file : {crashed, writing, someoneElses}) {
        std::ofstream(file) << "half a movie";
    }
    const int saving = ::open(writing.c_str(), O_RDONLY);
    ASSERT_EQ(::flock(saving, LOCK_EX | LOCK_NB), 0);

    EXPECT_EQ(Recovery::removeUnfinishedMovies(movies_.path()), 1);
    EXPECT_FALSE(std::filesystem::exists(crashed));
    EXPECT_TRUE(std::filesystem::exists(writing));
    EXPECT_TRUE(std::filesystem::exists(someoneElses));
    ::close(saving);
}

TEST_F(RecoveryTest, AMovieWithoutTagsStandsAloneAndOtherFilesAreOnlyReported) {
    // A movie from elsewhere, with reordered frames (B-frames), so its samples are read
    // and copied through memory rather than file to file.
    const auto untagged = parts_ / "Lumenvale-0F0F0F0F-0000-4000-8000-000000000001.mp4";
    testing::makeMovie(untagged, "-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i "
                                 "sine=frequency=500:sample_rate=44100 -t 4 -c:v libx264 -bf 2 "
                                 "-pix_fmt yuv420p -c:a aac");
    const auto expected = frameMd5s(untagged);
    testing::run("touch -d '2024-12-24 23:59:58' " + testing::quoted(untagged));
    const auto junk = parts_ / "Lumenvale-junk.mp4";
    std::ofstream(junk) << "half a header";
    const auto unrelated = parts_ / "holiday.mp4";
    std::filesystem::copy_file(parts_ / "recording.mp4", unrelated);

    const RecoveryResult result = Recovery::recoverAll(parts_.path(), movies_.path());

    ASSERT_EQ(result.recovered.size(), 1u);
    EXPECT_EQ(result.recovered[0].path, movies_ / "Lumenvale Recording 2024-12-24 at 23.59.58.mp4");
    EXPECT_NEAR(result.recovered[0].durationSeconds, 4.0, 0.05);
    EXPECT_EQ(frameMd5s(result.recovered[0].path), expected);
    ASSERT_EQ(result.unusable.size(), 1u);
    EXPECT_EQ(result.unusable[0].path, junk);
    EXPECT_EQ(result.unusable[0].reason,
              "The file “Lumenvale-junk.mp4” is not a movie Lumenvale can open.");
    EXPECT_EQ(testing::readFile(junk), "half a header");
    EXPECT_TRUE(std::filesystem::exists(unrelated));
    EXPECT_FALSE(std::filesystem::exists(untagged));
}

} // namespace
} // namespace lumenvale
