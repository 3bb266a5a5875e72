import QtQuick
import QtQuick.Layouts

// Under the preview: undo and redo, frame steps around play and pause, the time, and
// the clip and crop tools.
RowLayout {
    id: bar
    required property QtObject editor
    readonly property QtObject model: editor.model
    spacing: 4

    EditorButton {
        text: "Undo"
        hint: "Ctrl+Z"
        enabled: bar.model.canUndo
        onClicked: bar.model.undo()
    }
    EditorButton {
        text: "Redo"
        hint: "Ctrl+Shift+Z"
        enabled: bar.model.canRedo
        onClicked: bar.model.redo()
    }
    Item { Layout.fillWidth: true }
    EditorButton {
        text: "◀"
        accessibleName: "Previous Frame"
        hint: "Previous Frame (Left Arrow)"
        onClicked: bar.model.step(-1)
    }
    EditorButton {
        text: bar.model.isPlaying ? "Pause" : "Play"
        hint: "Space"
        onClicked: bar.model.togglePlay()
    }
    EditorButton {
        text: "▶"
        accessibleName: "Next Frame"
        hint: "Next Frame (Right Arrow)"
        onClicked: bar.model.step(1)
    }
    Text {
        text: bar.editor.timeText
        color: theme.text
        font.family: "monospace"
        Layout.leftMargin: 8
        Accessible.role: Accessible.StaticText
        Accessible.name: "Time " + text
    }
    Item { Layout.fillWidth: true }
    EditorButton {
        text: "Split"
        hint: "S"
        onClicked: bar.model.split()
    }
    EditorButton {
        text: "Delete Clip"
        hint: "Delete"
        enabled: bar.editor.clips.length > 1
        onClicked: bar.model.deleteClip()
    }
    EditorButton {
        text: "Crop"
        hint: "C; Escape leaves"
        highlighted: bar.model.cropping
        onClicked: bar.model.cropping = !bar.model.cropping
        Accessible.checkable: true
        Accessible.checked: highlighted
    }
}
