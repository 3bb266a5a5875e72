#include "EditorTestSupport.h"

#include <QSignalSpy>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <set>

namespace lumenvale::testing {
namespace {

std::set<std::string> filesIn(const std::filesystem::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// A 3-second recording "Take.mp4", opened fresh for every test, with the recordings'
// posters and a card that writes down what it was asked to show.
class EditorExporting : public ::testing::Test {
  protected:
    void SetUp() override {
        makeClip(movie, 3);
        EditorServices services;
        services.makePoster = &RecordingFiles::poster;
        services.showCard = [this](const Recording& shown) {
            cards.push_back(shown);
        };
        auto loaded = loadModel(movie, services);
        ASSERT_TRUE(loaded.model) << loaded.error.toStdString();
        model = std::move(loaded.model);
    }

    // Cuts output 1 ... 2 out: two clips, 2 s left.
    void cutOneSecond() {
        model->seek(1);
        model->split();
        model->seek(2);
        model->split();
        model->seek(1.5);
        model->setSelection(std::nullopt);
        model->deleteClip();
        ASSERT_NEAR(model->edit().outputDuration(), 2, 1e-9);
    }

    TemporaryFolder folder;
    std::filesystem::path movie = folder / "Take.mp4";
    std::unique_ptr<EditorModel> model;
    std::vector<Recording> cards;
};

TEST_F(EditorExporting, ExportsNextToTheRecordingUnderTheNextFreeEditedName) {
    QSignalSpy progress(model.get(), &EditorModel::exportProgressChanged);
    cutOneSecond();

    const auto first = await(model->exportFile(EditorModel::AfterExport::showCard));
    ASSERT_TRUE(first) << model->error().toStdString();
    EXPECT_EQ(*first, folder / "Take edited.mp4");
    EXPECT_NEAR(probe(*first).durationSeconds, 2, 0.1);
    EXPECT_FALSE(model->exportProgress());
    EXPECT_GE(progress.count(), 2) << "0 when it starts, absent when it ends";
    EXPECT_EQ(model->lastExport(), first);
    ASSERT_TRUE(model->exported());
    EXPECT_EQ(model->exported()->edit, model->edit());

    // The card shows the export like a recording: its length is the edit's.
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(cards[0].path, *first);
    EXPECT_DOUBLE_EQ(cards[0].durationSeconds, 2);
    ASSERT_TRUE(cards[0].poster);
    EXPECT_EQ(cards[0].poster->size, (PixelSize{320, 240}));
    EXPECT_TRUE(cards[0].partDurations.empty());

    const auto second = await(model->exportFile(EditorModel::AfterExport::noCard));
    ASSERT_TRUE(second);
    EXPECT_EQ(*second, folder / "Take edited 2.mp4");
    EXPECT_EQ(cards.size(), 1u);

    model->setFormat(EditorModel::ExportFormat::gif);
    const auto gif = await(model->exportFile(EditorModel::AfterExport::noCard));
    ASSERT_TRUE(gif) << model->error().toStdString();
    EXPECT_EQ(*gif, folder / "Take edited.gif");
    EXPECT_EQ(probe(*gif).streams.at(0).frames, 20); // 2 s at 10 frames a second
    EXPECT_EQ(model->exported()->format, EditorModel::ExportFormat::gif);
}

TEST_F(EditorExporting, CurrentExportReusesTheFileUntilTheEditOrFormatChanges) {
    const auto first = await(model->currentExport());
    ASSERT_TRUE(first) << model->error().toStdString();
    const qint64 exports = model->exportID();

    const auto again = await(model->currentExport());
    EXPECT_EQ(again, first);
    EXPECT_EQ(model->exportID(), exports) << "no second export";
    EXPECT_EQ(filesIn(folder.path()), (std::set<std::string>{"Take.mp4", "Take edited.mp4"}));

    cutOneSecond();
    const auto afterChange = await(model->currentExport());
    ASSERT_TRUE(afterChange);
    EXPECT_EQ(*afterChange, folder / "Take edited 2.mp4");
    EXPECT_NEAR(probe(*afterChange).durationSeconds, 2, 0.1);

    // A file that went away is written again.
    std::filesystem::remove(*afterChange);
    const auto rewritten = await(model->currentExport());
    ASSERT_TRUE(rewritten);
    EXPECT_TRUE(std::filesystem::exists(*rewritten));
    EXPECT_GT(model->exportID(), exports + 1);
    EXPECT_TRUE(cards.empty()) << "sharing shows no card";
}

TEST_F(EditorExporting, AnOvertakenExportLeavesTheModelAlone) {
    // The first export encodes (a crop), the second only copies, so the first one
    // usually finishes last; either way it must not touch the model.
    model->change([](EditDecision& edit) { edit.crop = Rect{0, 0, 0.5, 0.5}; });
    auto overtaken = model->exportFile(EditorModel::AfterExport::showCard);
    model->undo();
    auto newest = model->exportFile(EditorModel::AfterExport::showCard);

    const auto written = await(newest);
    ASSERT_TRUE(written) << model->error().toStdString();
    EXPECT_EQ(*written, folder / "Take edited 2.mp4") << "the running export holds the first name";
    EXPECT_FALSE(await(overtaken));
    QTest::qWait(200); // anything the first still had queued

    EXPECT_EQ(model->lastExport(), written);
    EXPECT_FALSE(model->exportProgress());
    EXPECT_TRUE(model->error().isEmpty());
    EXPECT_FALSE(model->exported()->edit.crop);
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(cards[0].path, *written);
}

// An export appears under its name only when complete; when the name it chose is
// taken meanwhile (by another program), it takes the next free one and keeps the other.
TEST_F(EditorExporting, AChosenNameTakenMeanwhileGoesToTheNextFreeName) {
    const auto reservation = EditorExport::reserveTarget(movie, EditorExport::Format::movie);
    const auto chosen = folder / "Take edited.mp4";
    ASSERT_EQ(reservation->path(), chosen);
    bool raced = false;
    bool visibleEarly = false;
    const auto written =
        EditorExport::write(movie, model->edit(), EditorExport::Format::movie, Codec::h264,
                            reservation->destination(), [&](double fraction) {
                                if (fraction > 0.3 && !raced) {
                                    visibleEarly = std::filesystem::exists(chosen);
                                    std::ofstream(chosen) << "someone else’s movie";
                                    raced = true;
                                }
                            });
    EXPECT_TRUE(raced);
    EXPECT_FALSE(visibleEarly);
    EXPECT_TRUE(readFile(chosen) == "someone else’s movie") << "replaced";
    EXPECT_EQ(written, folder / "Take edited 2.mp4");
    EXPECT_NEAR(probe(written).durationSeconds, 3, 0.1);
}

TEST_F(EditorExporting, ACancelledExportLeavesNothingAndTheNextOneWorks) {
    model->change([](EditDecision& edit) { edit.speed = 2; }); // encoded: takes a while
    QSignalSpy errors(model.get(), &EditorModel::errorChanged);
    auto cancelled = model->exportFile(EditorModel::AfterExport::showCard);
    ASSERT_TRUE(model->exportProgress());
    model->cancelExport();
    EXPECT_FALSE(model->exportProgress()); // Export is ready again at once
    EXPECT_FALSE(await(std::move(cancelled)));
    QTest::qWait(200);
    EXPECT_EQ(errors.count(), 0);
    EXPECT_FALSE(model->lastExport());
    EXPECT_TRUE(cards.empty());
    EXPECT_EQ(filesIn(folder.path()), (std::set<std::string>{"Take.mp4"}));
    EXPECT_TRUE(await(model->exportFile(EditorModel::AfterExport::noCard)));
}

// Every failure reaches the model the same way; which failures the renderer reports,
// an unwritable folder among them, is the media tests' concern.
TEST_F(EditorExporting, AFailedExportSaysWhyLeavesNothingAndKeepsTheEdit) {
    cutOneSecond();
    const EditDecision edit = model->edit();
    QSignalSpy errors(model.get(), &EditorModel::errorChanged);
    std::filesystem::rename(movie, folder / "Elsewhere.mp4");
    EXPECT_FALSE(await(model->exportFile(EditorModel::AfterExport::showCard)));
    EXPECT_EQ(errors.count(), 1);
    EXPECT_FALSE(model->error().isEmpty());
    EXPECT_FALSE(model->exportProgress());
    EXPECT_FALSE(model->lastExport());
    EXPECT_FALSE(model->exported());
    EXPECT_TRUE(cards.empty());
    EXPECT_EQ(model->edit(), edit);
    EXPECT_EQ(filesIn(folder.path()), (std::set<std::string>{"Elsewhere.mp4"}));
    std::filesystem::rename(folder / "Elsewhere.mp4", movie);
    // The model stays usable: the next export works.
    const auto written = await(model->exportFile(EditorModel::AfterExport::noCard));
    ASSERT_TRUE(written) << model->error().toStdString();
    EXPECT_EQ(*written, folder / "Take edited.mp4");
    EXPECT_EQ(model->lastExport(), written);

    // A disk with room for the recording and little more.
    const auto disk = folder / "disk";
    std::filesystem::create_directory(disk);
    const auto room = std::to_string(std::filesystem::file_size(movie) + 16 * 1024);
    if (std::system(
            ("mount -t tmpfs -o size=" + room + " tmpfs '" + disk.string() + "' 2>/dev/null")
                .c_str()) != 0) {
        GTEST_SKIP() << "cannot mount a small disk here";
    }
    std::filesystem::copy_file(movie, disk / "Full.mp4");
    auto loaded = loadModel(disk / "Full.mp4");
    ASSERT_TRUE(loaded.model);
    loaded.model->change([](EditDecision& slower) { slower.speed = 0.5; }); // twice as long
    EXPECT_FALSE(await(loaded.model->exportFile(EditorModel::AfterExport::noCard)));
    const std::string error = loaded.model->error().toStdString();
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(filesIn(disk), (std::set<std::string>{"Full.mp4"}));
    EXPECT_EQ(std::filesystem::file_size(disk / "Full.mp4"), std::filesystem::file_size(movie));
    loaded.model.reset();
    EXPECT_EQ(std::system(("umount '" + disk.string() + "'").c_str()), 0);
}

} // namespace
} // namespace lumenvale::testing
