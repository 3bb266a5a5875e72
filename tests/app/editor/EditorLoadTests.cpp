#include "EditorTestSupport.h"

#include <cctype>
#include <fstream>
#include <functional>
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

// Each file that cannot be opened says why in a sentence for a person, and makes no model.
TEST(EditorLoad, AFileThatIsNoRecordingSaysWhyAndMakesNoModel) {
    const struct {
        const char* name;
        std::function<void(const std::filesystem::path&)> make; // empty: no file at all
        const char* message;                                    // nullptr: any sentence
    } cases[] = {
        {"missing", nullptr, nullptr},
        {"notAMovie", [](const auto& file) { std::ofstream(file) << "A note, not a movie.\n"; },
         nullptr},
        {"zeroBytes", [](const auto& file) { std::ofstream{file}; }, nullptr},
        {"truncated",
         [](const auto& movie) {
             // The index sits at the end of the file: cutting it in half loses it.
             makeClip(movie, 3);
             std::filesystem::resize_file(movie, std::filesystem::file_size(movie) / 2);
         },
         nullptr},
        {"noVideo",
         [](const auto& movie) {
             makeMovie(movie, "-f lavfi -i sine=sample_rate=48000 -t 2 -c:a aac");
         },
         "“Recording.mp4” has no picture."},
        {"zeroDuration",
         [](const auto& movie) { // a video track without a single frame
             makeMovie(movie, "-f lavfi -i testsrc2=size=320x240:rate=30 -frames:v 0 "
                              "-c:v libx264 -movflags empty_moov+frag_keyframe");
         },
         "Nothing was recorded."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryFolder folder;
        const auto movie = folder / "Recording.mp4";
        if (c.make) {
            c.make(movie);
        }
        const auto loaded = loadModel(movie);
        EXPECT_FALSE(loaded.model);
        const std::string message = loaded.error.toStdString();
        if (c.message != nullptr) {
            EXPECT_EQ(message, c.message);
        } else {
            ASSERT_GT(message.size(), 10u);
            EXPECT_TRUE(std::isupper(static_cast<unsigned char>(message.front()))) << message;
            EXPECT_EQ(message.back(), '.') << message;
            EXPECT_EQ(message.find("AVERROR"), std::string::npos) << message;
        }
    }
}

} // namespace
} // namespace lumenvale::testing
