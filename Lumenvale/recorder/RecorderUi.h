#pragma once

#include "LumenvaleMedia/RecordingFiles.h"
#include "recorder/RecorderTypes.h"

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

namespace lumenvale {

// Everything the recorder shows around a recording, as one narrow seam: the
// graphical application plugs in the selection overlay, countdown, floating control,
// area outline, notices, camera bubble and recording card; the command line plugs in
// plain equivalents (a countdown on standard error, selections given by flags).
// The recorder decides when; the implementation decides how it looks.
//
// Threads: every function is called on the GUI thread, and every callback must be
// called there too. The recorder does not own the implementation; it must outlive
// the recorder's use of it (see ScreenRecorder::setUi).
class RecorderUi {
  public:
    enum class SelectionMode { area, window };

    virtual ~RecorderUi() = default;

    // Opens the selection overlay on every display. Its answer comes back as
    // ScreenRecorder::start(kind, selection), or ScreenRecorder::selectionCancelled().
    virtual void openSelection(SelectionMode mode) = 0;
    // Closes the overlay without a selection (stop() while selecting).
    virtual void closeSelection() = 0;

    // Runs the 3-2-1 countdown on `screen`. `done` is called at most once: true when
    // the countdown ran out, false when the user cancelled it. After cancelCountdown()
    // it may or may not be called; the recorder ignores a late answer.
    virtual void runCountdown(const Screen& screen, std::function<void(bool completed)> done) = 0;
    virtual void cancelCountdown() = 0;

    // Shows the camera bubble inside `rect` (desktop coordinates); `shown` follows
    // once it is on screen.
    virtual void showBubble(const Rect& rect, std::function<void()> shown) = 0;
    // The bubble's window while it is visible: a display recording keeps it in the video.
    virtual std::optional<std::uint32_t> visibleBubbleWindow() const = 0;

    // The dashed outline just outside a recorded area.
    virtual void showOutline(const Rect& area) = 0;
    // What a movie shows around the recorded thing: the desktop as it looks there
    // (a display, an area, a window on X11), or a window's own picture alone (a
    // window the desktop's dialog picked), which no other window can cover.
    enum class Backdrop { desktop, windowAlone };
    // Makes the floating control ready on `screen`; showControl() shows it.
    virtual void prepareControl(const Screen& screen, Backdrop backdrop) = 0;
    virtual void showControl() = 0;
    // Hides the control, the outline, the countdown and the camera bubble (and stops
    // the camera feed).
    virtual void hidePanels() = 0;

    // A transient notice with a complete sentence (or several).
    virtual void showNotice(const QString& text) = 0;
    // The card of a saved recording.
    virtual void showCard(const Recording& recording) = 0;
    // The screen cannot be captured here (no display server, or on X11 no MIT-SHM or
    // Composite; Screens::captureProblem() says which): show the user the way to make it
    // possible.
    virtual void screenPermissionRefused() = 0;
};

} // namespace lumenvale
