#include "EditorTestSupport.h"

#include <QSignalSpy>
#include <QThreadPool>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

// One 4-second recording, opened fresh for every test.
class EditorEditing : public ::testing::Test {
  protected:
    void SetUp() override {
        makeClip(movie, 4);
        auto loaded = loadModel(movie);
        ASSERT_TRUE(loaded.model) << loaded.error.toStdString();
        model = std::move(loaded.model);
        ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
    }

    TemporaryFolder folder;
    std::filesystem::path movie = folder / "Recording.mp4";
    std::unique_ptr<EditorModel> model;
};

TEST_F(EditorEditing, SplitAtThePlayheadSelectsTheLaterPieceAndUndoesInOneStep) {
    const EditDecision original = model->edit();
    model->seek(0.05); // a piece under 0.1 s is never made, and the refusal is no step
    model->split();
    EXPECT_EQ(model->edit(), original);
    EXPECT_TRUE(model->undoStack().empty());

    model->seek(1.5);
    model->split();

    ASSERT_EQ(model->edit().clips.size(), 2u);
    EXPECT_EQ(model->edit().clips[0].id, original.clips[0].id);
    EXPECT_NEAR(model->edit().clips[0].end, 1.5, 1e-9);
    EXPECT_EQ(model->selection(), model->edit().clips[1].id);
    ASSERT_EQ(model->undoStack().size(), 1u);
    EXPECT_EQ(model->undoStack()[0], original);
    const EditDecision cut = model->edit();

    model->undo();
    EXPECT_EQ(model->edit(), original);
    EXPECT_FALSE(model->selection()) << "the selected piece no longer exists";
    EXPECT_EQ(model->redoStack().size(), 1u);

    model->redo();
    EXPECT_EQ(model->edit(), cut);
    EXPECT_EQ(model->undoStack().size(), 1u);
    EXPECT_TRUE(model->redoStack().empty());
    EXPECT_TRUE(waitForPreviewOf(*model, cut));
}

TEST_F(EditorEditing, DeleteTakesTheSelectionOrElseTheClipUnderThePlayhead) {
    model->seek(1);
    model->split(); // 0-1 | 1-4, the second selected
    model->seek(3);
    model->split(); // 0-1 | 1-3 | 3-4, the third selected
    ASSERT_EQ(model->edit().clips.size(), 3u);
    const Uuid first = model->edit().clips[0].id;
    const Uuid middle = model->edit().clips[1].id;
    const Uuid last = model->edit().clips[2].id;

    model->setSelection(first);
    model->seek(2); // over the middle clip, but the selection wins
    model->deleteClip();
    ASSERT_EQ(model->edit().clips.size(), 2u);
    EXPECT_EQ(model->edit().clips[0].id, middle);
    EXPECT_FALSE(model->selection());

    // No selection: the clip under the playhead goes.
    model->seek(2.5); // output 2.5 is source 3.5, in the last clip
    model->deleteClip();
    ASSERT_EQ(model->edit().clips.size(), 1u);
    EXPECT_EQ(model->edit().clips[0].id, middle);
    EXPECT_NE(model->edit().clips[0].id, last);
    EXPECT_EQ(model->undoStack().size(), 4u);
    // Once the shorter preview is in, the playhead is inside it again.
    ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
    EXPECT_DOUBLE_EQ(model->time(), model->edit().outputDuration());

    // The only clip left is never deleted, and trying records nothing.
    model->deleteClip();
    EXPECT_EQ(model->edit().clips.size(), 1u);
    EXPECT_EQ(model->undoStack().size(), 4u);
}

TEST_F(EditorEditing, AGestureRecordsOneUndoStepOnlyWhenItEndsSomewhereElse) {
    const EditDecision start = model->edit();
    const Uuid clip = start.clips[0].id;
    const auto dragStartTo = [&](std::initializer_list<double> positions) {
        model->beginGesture();
        for (double position : positions) {
            EditDecision moved = model->edit();
            moved.trim(clip, position, std::nullopt);
            model->setEdit(moved);
        }
        model->endGesture();
    };

    dragStartTo({0.5, 1.0, 0.5, 0.0});
    EXPECT_EQ(model->edit(), start);
    EXPECT_TRUE(model->undoStack().empty());
    EXPECT_FALSE(model->gestureStart());

    dragStartTo({0.5, 1.0});
    EXPECT_EQ(model->undoStack().size(), 1u);
    EXPECT_EQ(model->undoStack()[0], start);
    EXPECT_NEAR(model->edit().clips[0].start, 1.0, 1e-9);
    EXPECT_TRUE(waitForPreviewOf(*model, model->edit()));

    // A change equal to the edit is no change at all.
    model->change([](EditDecision& edit) { edit.speed = 1; });
    EXPECT_EQ(model->undoStack().size(), 1u);
}

TEST_F(EditorEditing, CropModeOnAndOffWithoutMovingTheBoxLeavesNoCrop) {
    const EditDecision start = model->edit();
    QSignalSpy croppingChanges(model.get(), &EditorModel::croppingChanged);

    model->setCropping(true);
    ASSERT_TRUE(model->edit().crop);
    EXPECT_EQ(*model->edit().crop, (Rect{0, 0, 1, 1}));
    // While the box is placed, the preview shows the whole frame.
    EditDecision uncropped = model->edit();
    uncropped.crop.reset();
    ASSERT_TRUE(waitForPreviewOf(*model, uncropped));
    EXPECT_EQ(nullPlayer(*model).preview()->outputSize, (PixelSize{320, 240}));

    model->setCropping(false);
    EXPECT_FALSE(model->edit().crop);
    EXPECT_EQ(model->edit(), start);
    EXPECT_EQ(model->undoStack().size(), 2u);
    EXPECT_EQ(croppingChanges.count(), 2);
}

TEST_F(EditorEditing, AKeptCropShowsInThePreviewOnceCropModeEnds) {
    model->setCropping(true);
    model->beginGesture();
    EditDecision dragged = model->edit();
    dragged.crop = Rect{0.25, 0.25, 0.5, 0.5};
    model->setEdit(dragged);
    model->endGesture();
    model->setCropping(false);

    EXPECT_EQ(model->edit().crop, (Rect{0.25, 0.25, 0.5, 0.5}));
    ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
    EXPECT_EQ(nullPlayer(*model).preview()->outputSize, (PixelSize{160, 120}));

    // Undoing back to no crop while in crop mode turns crop mode off.
    model->setCropping(true);
    model->undo();
    model->undo();
    EXPECT_FALSE(model->edit().crop);
    EXPECT_FALSE(model->cropping());
}

TEST_F(EditorEditing, OnlyTheNewestOfOverlappingPreviewBuildsReachesThePlayer) {
    nullPlayer(*model).clearCalls();
    const qint64 before = model->generation();
    model->change([](EditDecision& edit) { edit.speed = 2; });
    model->change([](EditDecision& edit) { edit.speed = 4; });
    EXPECT_EQ(model->generation(), before + 2);

    // Both builds finish and are handed back; the first is already stale.
    QThreadPool::globalInstance()->waitForDone();
    ASSERT_TRUE(waitForPreviewOf(*model, model->edit()));
    QTest::qWait(100);
    int previews = 0;
    for (const auto& call : nullPlayer(*model).calls()) {
        previews += call.kind == PreviewPlayerNull::CallKind::setPreview ? 1 : 0;
    }
    EXPECT_EQ(previews, 1);
    EXPECT_EQ(nullPlayer(*model).preview()->edit.speed, 4);
}

} // namespace
} // namespace lumenvale::testing
