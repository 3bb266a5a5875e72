// The editor windows' registry: one window and one model per recording, however its
// path is spelled and however often it is asked for.

#include "../editor/EditorTestSupport.h"
#include "base/PathText.h"
#include "gui/editor/EditorWindow.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

TEST(EditorWindow, OpensOneWindowPerRecordingAndBringsItForwardWhenAskedAgain) {
    TemporaryFolder folder;
    const auto movie = folder / "Talk.mp4";
    makeClip(movie, 1);
    std::filesystem::create_directory(folder / "sub");
    EditorWindow& windows = EditorWindow::shared();
    QSignalSpy notices(&windows, &EditorWindow::noticeShown);
    const auto fileUrl = [](const std::filesystem::path& path) {
        return QUrl::fromLocalFile(toQString(path));
    };

    // Asked twice, under two spellings, while the first load still runs.
    windows.open(fileUrl(movie));
    windows.open(fileUrl(folder / "sub" / ".." / "Talk.mp4"));
    ASSERT_TRUE(notices.wait(workerTimeoutMs));
    QTest::qWait(300);
    ASSERT_EQ(notices.size(), 1);
    EXPECT_EQ(notices.takeFirst().at(0).toString(),
              QStringLiteral("Editing comes in a later version: Talk.mp4"));
    EditorModel* model = windows.model(movie);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(windows.model(folder / "sub" / ".." / "Talk.mp4"), model);

    // Asked again once open: the same window comes forward, nothing is loaded anew.
    windows.open(fileUrl(movie));
    ASSERT_EQ(notices.size(), 1);
    EXPECT_EQ(notices.takeFirst().at(0).toString(),
              QStringLiteral("Editing comes in a later version: Talk.mp4"));
    EXPECT_EQ(windows.model(movie), model);
    EXPECT_EQ(windows.model(folder / "Other.mp4"), nullptr);
}

} // namespace
} // namespace lumenvale::testing
