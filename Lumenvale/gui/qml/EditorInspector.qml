import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Beside the preview: the export's format, the speed, a gain for each audio track as
// the movie names it, Export and Share, and the export's progress with Cancel.
ColumnLayout {
    id: inspector
    required property QtObject editor
    readonly property QtObject model: editor.model
    spacing: 6

    component Heading: Text {
        color: theme.secondaryText
        font.pixelSize: 11
        font.weight: Font.DemiBold
        Layout.topMargin: 10
    }
    component Choice: EditorButton {
        required property bool chosen
        highlighted: chosen
        Accessible.checkable: true
        Accessible.checked: chosen
    }

    Heading { text: "FORMAT" }
    RowLayout {
        Choice {
            text: "MP4"
            chosen: inspector.editor.format === "movie"
            onClicked: inspector.editor.format = "movie"
        }
        Choice {
            text: "GIF"
            chosen: inspector.editor.format === "gif"
            onClicked: inspector.editor.format = "gif"
        }
    }

    Heading { text: "SPEED" }
    Flow {
        Layout.fillWidth: true
        spacing: 4
        Repeater {
            model: [0.5, 1, 1.5, 2, 4]
            Choice {
                required property real modelData
                text: modelData + "×"
                Accessible.name: "Speed " + modelData + "×"
                chosen: Math.abs(inspector.editor.speed - modelData) < 1e-9
                onClicked: inspector.editor.setSpeed(modelData)
            }
        }
    }

    Heading {
        text: "VOLUME"
        visible: inspector.editor.audioTracks.length > 0
    }
    Repeater {
        // By count, so a slider lives through the changes its drag makes.
        model: inspector.editor.audioTracks.length
        ColumnLayout {
            required property int index
            readonly property var modelData: inspector.editor.audioTracks[index]
            Layout.fillWidth: true
            spacing: 0
            Text {
                text: modelData.name
                color: theme.text
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            RowLayout {
                Layout.fillWidth: true
                Slider {
                    id: gain
                    from: 0
                    to: 2
                    value: modelData.volume
                    focusPolicy: Qt.NoFocus
                    Layout.fillWidth: true
                    Accessible.name: "Volume of " + modelData.name
                    onPressedChanged: pressed ? inspector.editor.beginVolume()
                                              : inspector.editor.endVolume()
                    onMoved: inspector.editor.setVolume(modelData.track, value)
                }
                EditorButton {
                    text: modelData.volume === 0 ? "Unmute" : "Mute"
                    accessibleName: text + " " + modelData.name
                    onClicked: inspector.editor.toggleMute(modelData.track)
                }
            }
        }
    }

    Item { Layout.fillHeight: true }

    Text {
        text: inspector.model.error
        visible: text !== ""
        color: theme.recording
        wrapMode: Text.Wrap
        Layout.fillWidth: true
        Accessible.role: Accessible.AlertMessage
        Accessible.name: text
    }
    RowLayout {
        visible: inspector.editor.exporting
        Layout.fillWidth: true
        ProgressBar {
            from: 0
            to: 1
            value: inspector.model.exportProgress === undefined ? 0 : inspector.model.exportProgress
            Layout.fillWidth: true
            Accessible.name: "Export Progress"
        }
        EditorButton {
            text: "Cancel Export"
            onClicked: inspector.model.cancelExport()
        }
    }
    RowLayout {
        Layout.fillWidth: true
        EditorButton {
            id: share
            text: "Share…"
            enabled: !inspector.editor.exporting
            Layout.fillWidth: true
            onClicked: {
                const at = share.mapToGlobal(0, share.height)
                inspector.editor.share(at.x, at.y)
            }
        }
        EditorButton {
            text: "Export"
            hint: "Ctrl+E"
            highlighted: true
            enabled: !inspector.editor.exporting
            Layout.fillWidth: true
            onClicked: inspector.model.startExport()
        }
    }
}
