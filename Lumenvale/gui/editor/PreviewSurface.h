#pragma once

#include "gui/editor/PreviewPlayerMpv.h"

#include <QPointer>
#include <QQuickFramebufferObject>

namespace lumenvale {

// Shows the pictures of a PreviewPlayerMpv in Qt Quick, drawn by mpv's OpenGL renderer
// into the item's framebuffer: the video fitted into the item with its aspect kept,
// centred between black bars. Without a player (or with an object that is not one) it
// shows black. One surface per player: mpv draws one core's pictures in one place.
//
// QML: `PreviewSurface { player: editor.previewPlayer }` after registerQmlType(). (Not
// final: QML derives from registered types.)
class PreviewSurface : public QQuickFramebufferObject {
    Q_OBJECT
    Q_PROPERTY(QObject* player READ player WRITE setPlayer NOTIFY playerChanged)

  public:
    explicit PreviewSurface(QQuickItem* parent = nullptr);

    // Registers the type as `PreviewSurface` in `Lumenvale.Editor 1.0` and makes Qt Quick
    // draw with OpenGL, which mpv's renderer needs. Call once at start-up, before any
    // window exists.
    static void registerQmlType();

    QObject* player() const;
    void setPlayer(QObject* player);
    // The player shown, when the object set as `player` is one.
    PreviewPlayerMpv* mpvPlayer() const { return player_.data(); }

    Renderer* createRenderer() const override;

  signals:
    void playerChanged();

  private slots:
    // The renderer made its render context for the player's core.
    void rendererAttached();

  private:
    QPointer<QObject> object_;
    QPointer<PreviewPlayerMpv> player_;
};

} // namespace lumenvale
