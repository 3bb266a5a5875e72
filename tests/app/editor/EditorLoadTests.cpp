#include "EditorTestSupport.h"

#include <cctype>
#include <fstream>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

TEST(EditorLoad, OpensARecordingWithOneClipOverTheWholeSourceAndItsFilmstrip) {
    TemporaryFolder folder;
    const auto movie = folder / "Recording.mp4";
    makeClip(movie, 3);

    auto loaded = loadModel(movie);
    ASSERT_TRUE(loaded.model) << loaded.error.toStdString();
    EditorModel& model = *loaded.model;

    EXPECT_EQ(model.videoSize(), (PixelSize{320, 240}));
    EXPECT_EQ(model.audioTracks(), 1);
    ASSERT_EQ(model.edit().clips.size(), 1u);
    EXPECT_NEAR(model.edit().sourceDuration, 3, 0.05);
    EXPECT_EQ(model.edit().clips[0].start, 0);
    EXPECT_EQ(model.edit().clips[0].end, model.edit().sourceDuration);
    EXPECT_TRUE(model.undoStack().empty());
    EXPECT_EQ(model.format(), EditorModel::ExportFormat::movie);

    // The first preview reaches the player, which is then put at the playhead.
    ASSERT_TRUE(waitForPreviewOf(model, model.edit()));
    const auto& calls = nullPlayer(model).calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0].kind, PreviewPlayerNull::CallKind::setPreview);
    EXPECT_EQ(calls[1], (PreviewPlayerNull::Call{PreviewPlayerNull::CallKind::seek, 0, {}}));

    // 48 filmstrip pictures, in time order, inside the source.
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.thumbnails().isEmpty(); }, workerTimeoutMs));
    ASSERT_EQ(model.thumbnails().size(), 48);
    for (qsizetype i = 0; i < model.thumbnails().size(); ++i) {
        const auto& picture = model.thumbnails()[i];
        EXPECT_FALSE(picture.image.isNull());
        EXPECT_LE(std::max(picture.image.width(), picture.image.height()), 240);
        EXPECT_GT(picture.timeSeconds, 0);
        EXPECT_LT(picture.timeSeconds, 3);
        if (i > 0) {
            EXPECT_GT(picture.timeSeconds, model.thumbnails()[i - 1].timeSeconds);
        }
    }
}

struct UnopenableCase {
    const char* name;
    // Writes the file to open; empty when it should not exist at all.
    void (*make)(const std::filesystem::path&);
    const char* expectedMessage; // nullptr: any readable sentence
};

// Test names and failure reports show the case's name.
void PrintTo(const UnopenableCase& testCase, std::ostream* out) {
    *out << testCase.name;
}

void writeText(const std::filesystem::path& file) {
    std::ofstream(file) << "This is a note, not a movie.\n";
}

void makeAudioOnly(const std::filesystem::path& movie) {
    makeMovie(movie, "-f lavfi -i sine=sample_rate=48000 -t 2 -c:a aac");
}

void makeEmptyVideo(const std::filesystem::path& movie) {
    // A video track without a single frame.
    makeMovie(movie, "-f lavfi -i testsrc2=size=320x240:rate=30 -frames:v 0 -c:v libx264 "
                     "-movflags empty_moov+frag_keyframe");
}

void makeTruncated(const std::filesystem::path& movie) {
    makeClip(movie, 3);
    // The index sits at the end of the file: cutting it in half loses it.
    std::filesystem::resize_file(movie, std::filesystem::file_size(movie) / 2);
}

class EditorLoadFailure : public ::testing::TestWithParam<UnopenableCase> {};

TEST_P(EditorLoadFailure, ReportsAReadableReasonAndMakesNoModel) {
    TemporaryFolder folder;
    const auto movie = folder / "Recording.mp4";
    if (GetParam().make != nullptr) {
        GetParam().make(movie);
    }
    const auto loaded = loadModel(movie);
    EXPECT_FALSE(loaded.model);
    const std::string message = loaded.error.toStdString();
    if (GetParam().expectedMessage != nullptr) {
        EXPECT_EQ(message, GetParam().expectedMessage);
    } else {
        // A sentence for a person, not a library code.
        ASSERT_GT(message.size(), 10u);
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(message.front()))) << message;
        EXPECT_EQ(message.back(), '.') << message;
        EXPECT_EQ(message.find("AVERROR"), std::string::npos) << message;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, EditorLoadFailure,
    ::testing::Values(UnopenableCase{"missing", nullptr, nullptr},
                      UnopenableCase{"notAMovie", writeText, nullptr},
                      UnopenableCase{"zeroBytes",
                                     [](const std::filesystem::path& file) { std::ofstream{file}; },
                                     nullptr},
                      UnopenableCase{"truncated", makeTruncated, nullptr},
                      UnopenableCase{"noVideo", makeAudioOnly, "“Recording.mp4” has no picture."},
                      UnopenableCase{"zeroDuration", makeEmptyVideo, "Nothing was recorded."}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

} // namespace
} // namespace lumenvale::testing
