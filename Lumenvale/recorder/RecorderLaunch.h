#pragma once

#include "LumenvaleMedia/VideoSource.h"
#include "recorder/ScreenRecorder.h"

#include <functional>
#include <memory>
#include <optional>

namespace lumenvale {

// One start in progress, carried across the awaits of the start sequence (bubble,
// countdown). Its `session` tells whether a stop() or a newer start overtook it.
struct ScreenRecorder::Launch {
    std::int64_t session = 0;
    RecordKind kind = RecordKind::screen;
    RecordingOptions options;
    Screen screen;
    Rect rect; // what is recorded, in desktop coordinates
    std::optional<Rect> area;
    // The window picked in Lumenvale's picker; a window recording without one has the
    // desktop's dialog pick it (Desktop::WindowPicking::desktopDialog).
    std::optional<std::uint32_t> windowID;
    // That capture, once the dialog picked the window (before the countdown, so the
    // choice comes first); taken when the recording starts.
    std::unique_ptr<VideoSource> pickedWindow;
    bool mic = false;
    std::function<void(bool)> done;

    // Answers the caller of start() once.
    void answer(bool started) {
        if (done) {
            auto call = std::move(done);
            done = nullptr;
            call(started);
        }
    }
};

} // namespace lumenvale
