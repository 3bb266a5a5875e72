// Saving parts as one movie: remuxing one part, joining three under each audio clock
// a part writer may use, and the file-level promises (names, clean-up).

#include "Harness.h"
#include "LumenvaleMedia/RecordingFiles.h"
#include "PartMaker.h"
#include "Probe.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

using testing::AudioClock;

constexpr double frameSeconds = 1.0 / 30;
constexpr double aacFrameSeconds = 1024.0 / 48000;
const LocalDateTime date{2025, 3, 4, 17, 5, 9};
const std::string movieName = "Lumenvale Recording 2025-03-04 at 17.05.09.mp4";

class SaveTest : public testing::SharedFolderTest<SaveTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        // Keyframes at 80 ... 90 as well, so parts of one frame can start there (the
        // one at 90 keeps the later ones on whole seconds).
        testing::makeRecording(recording(), 320, 240, 6,
                               {80, 81, 82, 83, 84, 85, 86, 87, 88, 89, 90});
    }
    static std::filesystem::path recording() { return *folder_ / "recording.mp4"; }

    std::vector<std::filesystem::path> parts(const std::vector<double>& cuts,
                                             AudioClock clock = AudioClock::continuous) {
        return testing::splitIntoParts(recording(), temp_.path(), cuts, {.clock = clock});
    }

    testing::TemporaryFolder temp_;
    testing::TemporaryFolder saveFolder_;
};

void expectStandardMovie(const std::filesystem::path& movie) {
    std::vector<std::string> boxes;
    for (const testing::Box& box : testing::mp4Boxes(movie)) {
        boxes.push_back(box.type);
    }
    const auto moov = std::find(boxes.begin(), boxes.end(), "moov");
    const auto mdat = std::find(boxes.begin(), boxes.end(), "mdat");
    ASSERT_NE(moov, boxes.end());
    ASSERT_NE(mdat, boxes.end());
    EXPECT_LT(moov, mdat) << "the index comes before the samples";
    EXPECT_EQ(std::find(boxes.begin(), boxes.end(), "moof"), boxes.end()) << "not fragmented";
}

TEST_F(SaveTest, OnePartBecomesAStandardMovieWithTheSameFrames) {
    const auto part = parts({})[0];
    const auto expected = testing::frameMd5s(part);
    const double partDuration = testing::probe(part).ofType("video")[0].durationSeconds;

    const Recording saved = RecordingFiles::save({part}, saveFolder_.path(), date);

    EXPECT_EQ(saved.path, saveFolder_ / movieName);
    EXPECT_EQ(testing::frameMd5s(saved.path), expected);
    EXPECT_NEAR(saved.durationSeconds, partDuration, frameSeconds);
    ASSERT_EQ(saved.partDurations.size(), 1u);
    EXPECT_NEAR(saved.partDurations[0], 6.0, frameSeconds);
    expectStandardMovie(saved.path);
    EXPECT_FALSE(std::filesystem::exists(part)) << "the part is removed after the save";
    ASSERT_TRUE(saved.poster.has_value());
    EXPECT_EQ(saved.poster->size, (PixelSize{320, 240}));
}

class JoinTest : public SaveTest, public ::testing::WithParamInterface<AudioClock> {};

TEST_P(JoinTest, ThreePartsPlayAsOneGaplessRecording) {
    const auto split = parts({2, 4}, GetParam());
    ASSERT_EQ(split.size(), 3u);
    const auto expected = testing::frameMd5s(split);

    const Recording saved = RecordingFiles::save(split, saveFolder_.path(), date);

    // The picture: every frame of every part, once, in order; and a player seeking into
    // the last part lands on the frame of that time.
    EXPECT_EQ(testing::frameMd5s(saved.path), expected);
    const std::string seeked =
        testing::run("ffmpeg -v error -ss 4.5 -i " + testing::quoted(saved.path) +
                     " -map 0:v -frames:v 1 -f framemd5 - | tail -1");
    EXPECT_NE(seeked.find(expected.at(135)), std::string::npos) << seeked;
    ASSERT_EQ(saved.partDurations.size(), 3u);
    for (double seconds : saved.partDurations) {
        EXPECT_NEAR(seconds, 2.0, frameSeconds / 2);
    }
    EXPECT_NEAR(saved.durationSeconds, 6.0, frameSeconds);
    expectStandardMovie(saved.path);
    for (const auto& part : split) {
        EXPECT_FALSE(std::filesystem::exists(part));
    }

    // The tracks, their names and which one plays by default.
    const testing::MovieInfo info = testing::probe(saved.path);
    const auto audio = info.ofType("audio");
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(audio[0].tags.at("handler_name"), "System audio");
    EXPECT_EQ(audio[1].tags.at("handler_name"), "Microphone");
    EXPECT_TRUE(audio[0].isDefault);
    EXPECT_FALSE(audio[1].isDefault);
    EXPECT_EQ(audio[0].channels, 2);
    EXPECT_EQ(audio[1].channels, 1);

    // In sync: the sound lasts as long as the picture, to within one AAC packet.
    EXPECT_LE(info.soundPictureMismatch(), aacFrameSeconds);
    for (std::size_t track = 0; track < 2; ++track) {
        SCOPED_TRACE("audio track " + std::to_string(track));
        // Gapless: each AAC packet lasts exactly its 1024 samples across the joins (in
        // MPEG-4 a packet lasts until the next one starts, so a gap or an overlap at a
        // join shows as a longer or shorter packet).
        const auto times = testing::audioPackets(saved.path, static_cast<int>(track));
        ASSERT_GT(times.size(), 250u);
        for (std::size_t i = 0; i + 1 < times.size(); ++i) {
            ASSERT_EQ(times[i].duration, 1024) << "packet " << i << " at " << times[i].pts;
        }
        // No click: the decoded tone never jumps further than the tone itself moves.
        const double frequency = track == 0 ? 440 : 660;
        const auto samples = testing::audioSamples(saved.path, static_cast<int>(track));
        float peak = 0;
        for (float sample : samples) {
            peak = std::max(peak, std::abs(sample));
        }
        const double maxStep = 2 * M_PI * frequency / 48000 * peak;
        ASSERT_GT(samples.size(), 48000u * 5);
        for (std::size_t i = 2048; i + 2048 < samples.size(); ++i) {
            ASSERT_LE(std::abs(samples[i] - samples[i - 1]), 1.5 * maxStep) << "sample " << i;
        }
        // And no dropout: the level around each join is the tone's.
        const double steady = testing::audioRms(saved.path, static_cast<int>(track), 1.0, 0.5);
        for (double join : {2.0, 4.0}) {
            EXPECT_NEAR(testing::audioRms(saved.path, static_cast<int>(track), join - 0.05, 0.1),
                        steady, 0.05 * steady);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AudioClocks, JoinTest,
                         ::testing::Values(AudioClock::continuous, AudioClock::partRelativeTagged,
                                           AudioClock::partRelative));

TEST_F(SaveTest, PartsOfOneFrameKeepThePictureInStepWithTheSound) {
    // Ten parts of one frame each (pause pressed twice quickly, ten times) between two
    // long ones, with sound handed on as the part writer does.
    std::vector<double> cuts;
    for (int frame = 80; frame <= 90; ++frame) {
        cuts.push_back(frame * frameSeconds);
    }
    const auto split = parts(cuts, AudioClock::partRelativeTagged);
    ASSERT_EQ(split.size(), 12u);

    const Recording saved = RecordingFiles::save(split, saveFolder_.path(), date);

    ASSERT_EQ(saved.partDurations.size(), 12u);
    for (std::size_t k = 1; k <= 10; ++k) {
        EXPECT_NEAR(saved.partDurations[k], frameSeconds, 1e-4) << "part " << k + 1;
    }
    // Every frame at the time it had in the recording, so after the short parts the
    // picture is where the sound is.
    const auto frames = testing::frameChecksums(saved.path);
    ASSERT_EQ(frames.size(), 180u);
    for (std::size_t n = 0; n < frames.size(); ++n) {
        ASSERT_NEAR(frames[n].timeSeconds, static_cast<double>(n) * frameSeconds, 1e-3)
            << "frame " << n;
    }
    EXPECT_LE(testing::probe(saved.path).soundPictureMismatch(), aacFrameSeconds);
}

TEST_F(SaveTest, ATakenNameGetsTheNextFreeOneAndTheOldFileIsUntouched) {
    for (const std::string& name :
         {movieName, std::string("Lumenvale Recording 2025-03-04 at 17.05.09 2.mp4")}) {
        std::ofstream(saveFolder_ / name) << "an earlier movie: " << name;
    }
    const Recording saved = RecordingFiles::save(parts({}), saveFolder_.path(), date);

    EXPECT_EQ(saved.path, saveFolder_ / "Lumenvale Recording 2025-03-04 at 17.05.09 3.mp4");
    EXPECT_EQ(testing::readFile(saveFolder_ / movieName), "an earlier movie: " + movieName);
    // Nothing else is left in the folder: no hidden temporary file.
    EXPECT_EQ(testing::folderContents(saveFolder_.path()).size(), 3u);
}

TEST_F(SaveTest, JoinNeverReplacesItsDestination) {
    const auto destination = saveFolder_ / "taken.mp4";
    std::ofstream(destination) << "keep me";
    const auto split = parts({3});
    EXPECT_THROW(RecordingFiles::join(split, destination), MediaError);
    EXPECT_EQ(std::filesystem::file_size(destination), 7u);
    for (const auto& part : split) {
        EXPECT_TRUE(std::filesystem::exists(part));
    }
}

} // namespace
} // namespace lumenvale
