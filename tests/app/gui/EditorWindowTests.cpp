// The editor windows: one window and one model per recording, however its path is
// spelled and however often it is asked for, gone with its model when it closes.

#include "../editor/EditorTestSupport.h"
#include "base/PathText.h"
#include "gui/editor/EditorWindow.h"
#include "gui/editor/PreviewSurface.h"
#include "gui/windows/Theme.h"
#include "gui/windows/Windows.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

int shownWindowsTitled(const QString& title) {
    int count = 0;
    for (const QWindow* window : QGuiApplication::topLevelWindows()) {
        count += window->isVisible() && window->title() == title ? 1 : 0;
    }
    return count;
}

TEST(EditorWindow, OpensOneWindowPerRecordingUntilItCloses) {
    TemporaryFolder folder;
    const auto movie = folder / "Talk.mp4";
    makeClip(movie, 1);
    std::filesystem::create_directory(folder / "sub");
    PreviewSurface::registerQmlType(); // as the application does before its windows
    Windows views;
    Theme theme;
    views.expose(QStringLiteral("theme"), &theme);
    EditorWindow& windows = EditorWindow::shared();
    windows.attach(views, {});
    QSignalSpy notices(&windows, &EditorWindow::noticeShown);
    const auto fileUrl = [](const std::filesystem::path& path) {
        return QUrl::fromLocalFile(toQString(path));
    };

    // Asked twice, under two spellings, while the first load still runs.
    windows.open(fileUrl(movie));
    windows.open(fileUrl(folder / "sub" / ".." / "Talk.mp4"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return windows.model(movie) != nullptr; }, workerTimeoutMs));
    QTest::qWait(300);
    EditorModel* model = windows.model(movie);
    EXPECT_EQ(windows.model(folder / "sub" / ".." / "Talk.mp4"), model);
    QQuickWindow* window = windows.window(*model);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(shownWindowsTitled(QStringLiteral("Talk")), 1);

    // Asked again once open: the same window comes forward, nothing is loaded anew.
    windows.open(fileUrl(movie));
    QTest::qWait(300);
    EXPECT_EQ(windows.model(movie), model);
    EXPECT_EQ(shownWindowsTitled(QStringLiteral("Talk")), 1);
    EXPECT_EQ(windows.model(folder / "Other.mp4"), nullptr);
    EXPECT_EQ(notices.size(), 0);

    // Closed: the registry forgets it, and the next open makes a new window.
    window->close();
    EXPECT_EQ(windows.model(movie), nullptr);
    ASSERT_TRUE(QTest::qWaitFor([] { return shownWindowsTitled(QStringLiteral("Talk")) == 0; }));
    windows.open(fileUrl(movie));
    ASSERT_TRUE(QTest::qWaitFor([&] { return windows.model(movie) != nullptr; }, workerTimeoutMs));
    EXPECT_EQ(shownWindowsTitled(QStringLiteral("Talk")), 1);
    windows.closeAll();
}

} // namespace
} // namespace lumenvale::testing
