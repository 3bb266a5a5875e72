#pragma once

#include "LumenvaleKit/Geometry.h"

#include <QObject>
#include <QPointF>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QMenu;
class QQmlEngine;
class QQuickWindow;
class QTimer;

namespace lumenvale {

class CameraFeed;

// The camera bubble: the user's camera in a round floating window inside the recorded
// area. Unlike the other panels it is part of the movie, so it stays on top, never takes
// the focus and shows on every workspace. The user moves it by dragging, resizes it by
// dragging its 12-point edge ring or with the scroll wheel, picks a size or hides it
// from its context menu; each change of place or size is stored in the recorder's
// options (bubbleFrame, bubbleDiameter), so the next recording starts where this one
// left it. A missing or failing camera never stops a recording: the bubble stays away
// and says why through noticeShown.
//
// The view is qrc:/qml/BubbleView.qml, made once in the given engine on first show().
//
// Threads: the GUI thread of a QApplication (the context menu is a widget). The engine
// must outlive the bubble.
class CameraBubble : public QObject {
    Q_OBJECT

  public:
    // The width of the edge ring that resizes instead of moving, in points.
    static constexpr double resizeRing = 12;

    explicit CameraBubble(QQmlEngine& engine, QObject* parent = nullptr);
    ~CameraBubble() override;

    // Shows the bubble inside `area` (desktop coordinates), at the stored frame when it
    // still fits there, else at the area's bottom-left corner; starts the camera. `shown`
    // is called once the window has been drawn on screen, and also (after a notice) when
    // there is no camera or the view cannot be made, so a recording never waits on the
    // camera. A hide() before that drops it.
    void show(const Rect& area, std::function<void()> shown);
    // Hides the window and stops the camera.
    void hide();
    // The X window id while the bubble is visible.
    std::optional<std::uint32_t> windowID() const;

    // The bubble's frame in desktop coordinates (the last one shown).
    const Rect& frame() const { return frame_; }
    // The window, once made (tests and screenshots).
    QQuickWindow* window() const { return window_.get(); }
    // The context menu, once made: Small, Medium, Large, Hide Camera.
    QMenu* menu() const { return menu_.get(); }

  signals:
    // A sentence for the user: why the bubble is not (or no longer) shown.
    void noticeShown(const QString& text);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    struct Press {
        QPointF pointer; // global, top-left coordinates
        Rect frame;      // desktop coordinates
        QPointF centre;  // of the frame, global top-left coordinates
        bool resizing = false;
    };

    bool makeWindow();
    void place(const Rect& frame);
    void resizeTo(double diameter);
    void save();
    void showMenu(const QPoint& global);
    void drawn();
    void giveUp(const QString& notice);

    QQmlEngine& engine_;
    std::unique_ptr<CameraFeed> feed_;
    std::unique_ptr<QQuickWindow> window_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QTimer> exposeLimit_;
    std::vector<std::function<void()>> waiting_; // shown callbacks until drawn
    Rect area_;
    Rect frame_;
    std::optional<Press> press_;
};

} // namespace lumenvale
