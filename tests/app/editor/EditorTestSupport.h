#pragma once

// Helpers for driving an EditorModel from a test: open a real movie, wait for the
// worker results the model hands back, and look at what the player was told.

#include "Probe.h"
#include "editor/EditorModel.h"
#include "editor/PreviewPlayerNull.h"

#include <QFuture>
#include <QTest>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace lumenvale::testing {

constexpr int workerTimeoutMs = 60000;

// A 320 x 240 test pattern at 30 frames a second with a 440 Hz tone, `seconds` long.
inline void makeClip(const std::filesystem::path& movie, double seconds) {
    const std::string length = std::to_string(seconds);
    makeMovie(movie, "-f lavfi -i testsrc2=size=320x240:rate=30 -f lavfi -i "
                     "sine=frequency=440:sample_rate=48000 -t " +
                         length + " -c:v libx264 -pix_fmt yuv420p -g 30 -c:a aac");
}

// Opens `movie` and waits for the outcome.
inline EditorModel::LoadResult loadModel(const std::filesystem::path& movie,
                                         EditorServices services = {}) {
    std::optional<EditorModel::LoadResult> result;
    QObject context;
    EditorModel::load(movie, std::move(services), &context,
                      [&](EditorModel::LoadResult loaded) { result = std::move(loaded); });
    (void)QTest::qWaitFor([&] { return result.has_value(); }, workerTimeoutMs); // checked below
    return result ? std::move(*result) : EditorModel::LoadResult{nullptr, "timed out"};
}

inline PreviewPlayerNull& nullPlayer(EditorModel& model) {
    return dynamic_cast<PreviewPlayerNull&>(model.player());
}

// Waits until the player shows a preview of `expected` (the edit as the preview
// should have it). True when it does.
inline bool waitForPreviewOf(EditorModel& model, const EditDecision& expected) {
    return QTest::qWaitFor(
        [&] {
            const auto& preview = nullPlayer(model).preview();
            return preview && preview->edit == expected;
        },
        workerTimeoutMs);
}

template <typename T> std::optional<T> await(QFuture<std::optional<T>> future) {
    (void)QTest::qWaitFor([&] { return future.isFinished(); }, workerTimeoutMs); // checked below
    if (!future.isFinished() || future.isCanceled() || future.resultCount() == 0) {
        return std::nullopt;
    }
    return future.result();
}

} // namespace lumenvale::testing
