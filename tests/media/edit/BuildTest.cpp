// Resolving edits against real movies made with the ffmpeg command line.

#include "EncodeChecks.h"
#include "Harness.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "LumenvaleMedia/MediaError.h"
#include "Probe.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {
namespace {

using EditRenderer::Built;
using EditRenderer::Segment;
using testing::editKeeping;
using testing::makeMovie;
using testing::quoted;
using testing::TemporaryFolder;

const std::string picture = "-f lavfi -i testsrc2=size=320x240:rate=30:duration=4 ";
const std::string tone = "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=4 ";
const std::string fastVideo = " -c:v libx264 -preset ultrafast -bf 0 -g 30 -pix_fmt yuv420p ";

struct SegmentRow {
    double sourceStart;
    double sourceEnd;
    double outputStart;
};

void expectSegments(const std::vector<Segment>& actual, const std::vector<SegmentRow>& expected,
                    const std::string& what) {
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(actual[i].sourceStart, expected[i].sourceStart, 1e-9) << what << " #" << i;
        EXPECT_NEAR(actual[i].sourceEnd, expected[i].sourceEnd, 1e-9) << what << " #" << i;
        EXPECT_NEAR(actual[i].outputStart, expected[i].outputStart, 1e-9) << what << " #" << i;
    }
}

class BuildTest : public testing::SharedFolderTest<BuildTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeMovie(movie("plain.mp4"), picture + tone + fastVideo + "-c:a aac");
        // A shorter picture than sound: 3 s of video, 4 s of audio.
        makeMovie(movie("short-video.mp4"),
                  "-f lavfi -i testsrc2=size=320x240:rate=30:duration=3 " + tone + fastVideo +
                      "-c:a aac");
        // Lumenvale's layout with both sources: the mix, then system audio, then microphone.
        makeMovie(movie("layout.mp4"),
                  picture + tone + tone + tone + fastVideo +
                      "-map 0 -map 1 -map 2 -map 3 -c:a aac "
                      "-metadata:s:a:0 handler_name='System audio and microphone' "
                      "-metadata:s:a:1 handler_name='System audio' "
                      "-metadata:s:a:2 handler_name='Microphone'");
        // A movie from elsewhere with two untitled audio tracks.
        makeMovie(movie("two-tracks.mp4"),
                  picture + tone + tone + fastVideo + "-map 0 -map 1 -map 2 -c:a aac");
    }
    static std::filesystem::path movie(const std::string& name) { return *folder_ / name; }
};

TEST_F(BuildTest, PlacesEachClipInEditOrderOnEveryTrack) {
    struct Row {
        std::string what;
        EditDecision edit;
        std::vector<SegmentRow> segments; // the same on the video and the audio track
        double outputSeconds;
    };
    const std::vector<Row> rows = {
        {"fresh edit", editKeeping(4, {{0, 4}}), {{0, 4, 0}}, 4},
        {"middle cut", editKeeping(4, {{0, 1}, {2, 4}}), {{0, 1, 0}, {2, 4, 1}}, 3},
        {"reordered clips", editKeeping(4, {{2, 3}, {0, 1}}), {{2, 3, 0}, {0, 1, 1}}, 2},
        {"clip past the end", editKeeping(4, {{3, 6}}), {{3, 4, 0}}, 1},
        {"clip wholly outside is skipped",
         editKeeping(4, {{1, 2}, {5, 6}, {0, 0.5}}),
         {{1, 2, 0}, {0, 0.5, 1}},
         1.5},
        {"double speed", editKeeping(4, {{0, 4}}, 2), {{0, 4, 0}}, 2},
        {"times taken at 1/600 s", editKeeping(4, {{0.50001, 1.49999}}), {{0.5, 1.5, 0}}, 1},
    };
    for (const Row& row : rows) {
        const Built built = EditRenderer::build(movie("plain.mp4"), row.edit);
        ASSERT_EQ(built.tracks.size(), 2U) << row.what;
        EXPECT_EQ(built.tracks[0].kind, EditRenderer::TrackKind::video) << row.what;
        EXPECT_EQ(built.tracks[1].kind, EditRenderer::TrackKind::audio) << row.what;
        expectSegments(built.tracks[0].segments, row.segments, row.what + ", video");
        expectSegments(built.tracks[1].segments, row.segments, row.what + ", audio");
        EXPECT_NEAR(built.outputDurationSeconds, row.outputSeconds, 1e-9) << row.what;
        EXPECT_EQ(built.edit, row.edit) << row.what;
    }
}

TEST_F(BuildTest, ShorterTrackAddsOnlyWhatItHasAndStaysInSync) {
    const Built built =
        EditRenderer::build(movie("short-video.mp4"), editKeeping(4, {{0, 1}, {2.5, 4}, {1, 2}}));
    expectSegments(built.tracks[0].segments, {{0, 1, 0}, {2.5, 3, 1}, {1, 2, 2.5}}, "video");
    expectSegments(built.tracks[1].segments, {{0, 1, 0}, {2.5, 4, 1}, {1, 2, 2.5}}, "audio");
    EXPECT_NEAR(built.outputDurationSeconds, 3.5, 1e-9);
}

TEST_F(BuildTest, NumbersSourceTracksFromOneAndSkipsTheMix) {
    EditDecision edit = editKeeping(4, {{0, 4}});
    edit.volumes = {{1, 0.5}, {2, 0.25}};
    struct Expected {
        int sourceTrack;
        bool isMix;
        double gain;
    };
    struct Row {
        std::string name;
        std::vector<Expected> audio;
        int audioTracks;
    };
    const std::vector<Row> rows = {
        {"layout.mp4", {{0, true, 1}, {1, false, 0.5}, {2, false, 0.25}}, 2},
        {"two-tracks.mp4", {{1, false, 0.5}, {2, false, 0.25}}, 2},
        {"plain.mp4", {{1, false, 0.5}}, 1},
    };
    for (const Row& row : rows) {
        const Built built = EditRenderer::build(movie(row.name), edit);
        ASSERT_EQ(built.tracks.size(), row.audio.size() + 1) << row.name;
        EXPECT_EQ(built.audioTracks, row.audioTracks) << row.name;
        int previousStream = built.tracks[0].streamIndex;
        for (std::size_t i = 0; i < row.audio.size(); ++i) {
            const auto& track = built.tracks[i + 1];
            EXPECT_EQ(track.sourceTrack, row.audio[i].sourceTrack) << row.name << " #" << i;
            EXPECT_EQ(track.isMix, row.audio[i].isMix) << row.name << " #" << i;
            EXPECT_DOUBLE_EQ(track.gain, row.audio[i].gain) << row.name << " #" << i;
            EXPECT_GT(track.streamIndex, previousStream) << row.name << ": file order";
            previousStream = track.streamIndex;
        }
    }
}

TEST_F(BuildTest, ReadsPictureSizeRateAndCrop) {
    struct Row {
        std::string what;
        std::string rate; // of a 320 x 240 picture
        std::optional<Rect> crop;
        PixelSize outputSize;
        double frameRate;
    };
    const std::vector<Row> rows = {
        {"plain", "30", std::nullopt, {320, 240}, 30},
        {"cropped", "30", Rect{0.25, 0.1, 0.5, 0.5}, {160, 120}, 30},
        {"PAL rate", "25", std::nullopt, {320, 240}, 25},
        {"NTSC rate rounds up", "30000/1001", std::nullopt, {320, 240}, 30},
        {"half rate rounds away from zero", "25/2", std::nullopt, {320, 240}, 13},
    };
    for (const Row& row : rows) {
        const auto path = movie("rate.mp4");
        makeMovie(path,
                  "-f lavfi -i testsrc2=size=320x240:rate=" + row.rate + ":duration=1" + fastVideo);
        EditDecision edit = editKeeping(4, {{0, 1}});
        edit.crop = row.crop;
        const Built built = EditRenderer::build(path, edit);
        EXPECT_EQ(built.videoSize, (PixelSize{320, 240})) << row.what;
        EXPECT_EQ(built.outputSize, row.outputSize) << row.what;
        EXPECT_DOUBLE_EQ(built.frameRate, row.frameRate) << row.what;
        EXPECT_EQ(built.audioTracks, 0) << row.what;
    }
}

TEST_F(BuildTest, RefusesWhatCannotBeEditedWithAReadableSentence) {
    TemporaryFolder folder;
    { std::ofstream(folder / "notes.mp4") << "These are notes, not a movie.\n"; }
    // A movie copied only halfway: with its index at the end (lost), and at the front
    // (pointing past the end of the file).
    for (const std::string& layout : {std::string("index-last"), std::string("index-first")}) {
        const auto whole = folder / (layout + "-whole.mp4");
        makeMovie(whole, picture + tone + fastVideo + "-c:a aac" +
                             (layout == "index-first" ? " -movflags +faststart" : ""));
        const auto size = std::filesystem::file_size(whole);
        testing::run("head -c " + std::to_string(size / 2) + " " + quoted(whole) + " > " +
                     quoted(folder / (layout + ".mp4")));
    }
    makeMovie(folder / "sound-only.m4a", tone + "-c:a aac");
    makeMovie(folder / "still.png", picture + "-frames:v 1");

    struct Row {
        std::string what;
        std::filesystem::path path;
        EditDecision edit;
        std::string sentence; // part of the message
    };
    const std::vector<Row> rows = {
        {"missing file", folder / "gone.mp4", editKeeping(4, {{0, 1}}),
         "“gone.mp4” does not exist."},
        {"not a movie", folder / "notes.mp4", editKeeping(4, {{0, 1}}),
         "“notes.mp4” is not a movie"},
        {"truncated, index last", folder / "index-last.mp4", editKeeping(4, {{0, 1}}),
         "“index-last.mp4” is damaged or incomplete."},
        {"truncated, index first", folder / "index-first.mp4", editKeeping(4, {{0, 1}}),
         "“index-first.mp4” is damaged or incomplete."},
        {"no video", folder / "sound-only.m4a", editKeeping(4, {{0, 1}}),
         "“sound-only.m4a” has no picture."},
        {"a still picture", folder / "still.png", editKeeping(4, {{0, 1}}),
         "“still.png” is not a movie."},
        {"every clip past the end", movie("plain.mp4"), editKeeping(4, {{5, 6}, {7, 9}}),
         "The edit reaches past the end of the movie."},
        // Edits no movie can be made of are refused before any time is converted.
        {"times beyond any movie", movie("plain.mp4"), editKeeping(4, {{1e300, 1e308}}),
         "\"clips[0].start\" lies beyond"},
        {"a clip ending before it starts", movie("plain.mp4"), editKeeping(4, {{0, 1}, {3, 2}}),
         "\"clips[1]\" ends before it starts."},
        {"slower than a day", movie("plain.mp4"), editKeeping(4, {{0, 4}}, 1e-300),
         "longer than a day"},
        {"faster than a frame", movie("plain.mp4"), editKeeping(4, {{0, 4}}, 1e6),
         "shorter than one frame"},
    };
    for (const Row& row : rows) {
        const auto failure =
            testing::thrown<MediaError>([&] { EditRenderer::build(row.path, row.edit); });
        ASSERT_TRUE(failure.has_value()) << row.what;
        EXPECT_FALSE(failure->recError) << row.what; // none of them is the recorder's
        EXPECT_NE(std::string(failure->what()).find(row.sentence), std::string::npos)
            << row.what << ": " << failure->what();
    }
}

} // namespace
} // namespace lumenvale
