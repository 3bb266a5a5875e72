// A recorder without a UI of its own (tests, headless runs) shows nothing and never
// waits for one: a selection is cancelled and a countdown runs out before start()
// answers.

#include "recorder/ScreenRecorder.h"

#include <QStringList>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

using Phase = ScreenRecorder::Phase;

TEST(ScreenRecorderWithoutUi, CancelsTheSelectionAndRunsOutTheCountdownAtOnce) {
    ScreenRecorder recorder;
    recorder.setUi(nullptr);
    std::vector<Phase> phases;
    QStringList notices;
    QObject::connect(&recorder, &ScreenRecorder::phaseChanged,
                     [&](Phase phase) { phases.push_back(phase); });
    QObject::connect(&recorder, &ScreenRecorder::noticeShown,
                     [&](const QString& text) { notices << text; });

    std::optional<bool> areaStarted;
    recorder.start(RecordKind::area, std::nullopt, [&](bool started) { areaStarted = started; });
    EXPECT_EQ(areaStarted, false);
    EXPECT_EQ(phases, (std::vector{Phase::selecting, Phase::idle}));

    // The countdown ends at once, so the start goes on to look for the window, which
    // is gone.
    RecordingOptions options;
    options.countdown = true;
    options.microphone = false;
    options.camera = false;
    recorder.setRunOptions(options);
    phases.clear();
    std::optional<bool> windowStarted;
    recorder.start(RecordKind::window, Selection{Rect{0, 0, 300, 200}, 0x7ffffff0u},
                   [&](bool started) { windowStarted = started; });
    EXPECT_EQ(windowStarted, false);
    EXPECT_EQ(phases, (std::vector{Phase::countdown, Phase::idle}));
    EXPECT_EQ(notices, QStringList{QStringLiteral("Couldn’t start recording. The window closed.")});
}

} // namespace
} // namespace lumenvale
