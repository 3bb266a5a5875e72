import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window
import Lumenvale.Editor

// The editor window of one recording (EditorViewModel over its EditorModel): the
// preview with the crop box, the transport bar, the timeline and the inspector.
Window {
    id: window
    required property QtObject editor
    readonly property QtObject model: editor.model
    title: editor.title
    width: 1120
    height: 720
    minimumWidth: 760
    minimumHeight: 520
    color: theme.window

    Shortcut { sequence: "Space"; onActivated: window.model.togglePlay() }
    Shortcut { sequence: "Left"; onActivated: window.model.step(-1) }
    Shortcut { sequence: "Right"; onActivated: window.model.step(1) }
    Shortcut { sequence: "S"; onActivated: window.model.split() }
    Shortcut { sequences: ["Delete", "Backspace"]; onActivated: window.model.deleteClip() }
    Shortcut { sequence: "Ctrl+Z"; onActivated: window.model.undo() }
    Shortcut { sequences: ["Ctrl+Shift+Z", "Ctrl+Y"]; onActivated: window.model.redo() }
    Shortcut { sequence: "C"; onActivated: window.model.cropping = !window.model.cropping }
    Shortcut {
        sequence: "Escape"
        enabled: window.model.cropping
        onActivated: window.model.cropping = false
    }
    Shortcut {
        sequence: "Ctrl+E"
        enabled: !window.editor.exporting
        onActivated: window.model.startExport()
    }
    Shortcut { sequence: "Ctrl+W"; onActivated: window.close() }

    RowLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 12

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 8

            Rectangle {
                id: stage
                color: "black"
                Layout.fillWidth: true
                Layout.fillHeight: true
                // Where the picture lies inside the stage: fitted, its shape kept.
                readonly property size picture: window.editor.pictureSize
                readonly property real fit: picture.width > 0 && picture.height > 0
                    ? Math.min(width / picture.width, height / picture.height) : 1
                readonly property rect video: Qt.rect((width - picture.width * fit) / 2,
                                                      (height - picture.height * fit) / 2,
                                                      picture.width * fit, picture.height * fit)

                PreviewSurface {
                    id: preview
                    anchors.fill: parent
                    player: window.model.previewPlayer
                    Accessible.role: Accessible.Animation
                    Accessible.name: "Preview"
                }
                CropBox {
                    visible: window.model.cropping
                    editor: window.editor
                    x: stage.video.x
                    y: stage.video.y
                    width: stage.video.width
                    height: stage.video.height
                }
            }
            TransportBar {
                editor: window.editor
                Layout.fillWidth: true
            }
            EditorTimeline {
                editor: window.editor
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
            }
        }
        Rectangle {
            width: 1
            color: theme.divider
            Layout.fillHeight: true
        }
        EditorInspector {
            editor: window.editor
            Layout.preferredWidth: 240
            Layout.fillHeight: true
        }
    }
}
