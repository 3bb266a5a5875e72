#pragma once

#include "desktop/Screens.h"
#include "recorder/RecorderUi.h"

#include <QObject>
#include <QPointF>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QQuickWindow;

namespace lumenvale {

class HotkeyCenter;
class StillImages;
class Windows;

// The picker before an area or window recording (PickerPanel.qml, one per display):
// every display dimmed; in area mode the user drags out a rectangle (at least 8 × 8
// points, or the drag is discarded and the picker stays), in window mode the window
// under the pointer lights up and a click picks it. Escape, even while another
// application has the focus, closes the picker without a result. Without a
// compositor the dim lies over a still of each display, taken as the picker opens.
//
// Positions come from the global pointer, so a drag may cross from one display's
// picker to another's. Rectangles are in desktop coordinates with whole-point edges.
//
// Threads: the GUI thread.
class SelectionOverlay : public QObject {
    Q_OBJECT

  public:
    using Mode = RecorderUi::SelectionMode;
    // The answer: the dragged area or the clicked window with its frame; nothing when
    // the picker was closed without one.
    using Finish = std::function<void(std::optional<Selection>)>;

    SelectionOverlay(Windows& windows, HotkeyCenter* hotkeys, QObject* parent = nullptr);
    ~SelectionOverlay() override;

    // Opens the picker on every display; `finish` is called once, when it closes. An
    // open picker is closed (without a result) first.
    void open(Mode mode, Finish finish);
    // Closes it without a result, without calling `finish` (the recorder's stop).
    void close();

    // The pointer, in Qt's global coordinates, from the pickers' views.
    Q_INVOKABLE void pointerPressed(double x, double y);
    Q_INVOKABLE void pointerMoved(double x, double y);
    Q_INVOKABLE void pointerReleased(double x, double y);

  private:
    void finish(std::optional<Selection> selection);
    void updateHover(const Rect& point);
    void redraw();

    Windows& windows_;
    HotkeyCenter* hotkeys_;
    StillImages* stills_;                                // owned by the views' engine
    std::vector<std::unique_ptr<QQuickWindow>> pickers_; // one per display, kept
    bool open_ = false;
    Mode mode_ = Mode::area;
    Finish finish_;
    std::vector<Screens::PickableWindow> windowList_;
    std::optional<QPointF> dragStart_; // desktop coordinates
    std::optional<Rect> dragRect_;
    std::optional<Screens::PickableWindow> hovered_;
};

} // namespace lumenvale
