import QtQuick

// One clip of the timeline: its filmstrip in a rounded frame (a thicker border when
// selected) and a trim handle at each edge. A press selects the clip and moves the
// playhead under the pointer; dragging scrubs.
Item {
    id: clipView
    required property QtObject editor
    required property var clip
    required property int index
    required property real scale // points per second of output
    readonly property real naturalWidth: clip.outputDuration * scale
    width: Math.max(8, naturalWidth)
    height: 64
    Accessible.role: Accessible.Button
    Accessible.name: "Clip " + (index + 1) + ", " + clip.label
    Accessible.selected: clip.selected
    Accessible.onPressAction: editor.clickClip(index, 0, width)

    Rectangle {
        id: frame
        anchors.fill: parent
        radius: 8
        clip: true
        color: Qt.rgba(0.5, 0.5, 0.5, 0.25)
        Row {
            anchors.fill: parent
            Repeater {
                model: clipView.editor.thumbnailCount >= 0
                       ? clipView.editor.filmstrip(clipView.index, clipView.width) : []
                Item {
                    required property string modelData
                    width: frame.width / Math.max(1, Math.floor(clipView.width / 72))
                    height: frame.height
                    clip: true
                    Image {
                        anchors.fill: parent
                        source: parent.modelData
                        visible: parent.modelData !== ""
                        fillMode: Image.PreserveAspectCrop
                        asynchronous: true
                    }
                }
            }
        }
    }
    Rectangle {
        anchors.fill: parent
        radius: 8
        color: "transparent"
        border.width: clipView.clip.selected ? 3 : 1
        border.color: clipView.clip.selected ? theme.accent : theme.divider
    }
    MouseArea {
        anchors.fill: parent
        onPressed: (mouse) => clipView.editor.clickClip(clipView.index, mouse.x, clipView.width)
        onPositionChanged: (mouse) => clipView.editor.clickClip(
                               clipView.index, Math.max(0, Math.min(mouse.x, clipView.width)),
                               clipView.width)
    }
    Repeater {
        model: 2 // 0: the start, 1: the end
        Item {
            id: handle
            required property int index
            readonly property int edge: index
            property real pressX: 0
            x: edge === 0 ? -4 : clipView.width - 8
            width: 12
            height: clipView.height
            Accessible.role: Accessible.Slider
            Accessible.name: (edge === 0 ? "Start of clip " : "End of clip ") + (clipView.index + 1)
            Rectangle {
                anchors.centerIn: parent
                width: 4
                height: 28
                radius: 2
                color: "white"
                border.color: Qt.rgba(0, 0, 0, 0.33)
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.SizeHorCursor
                preventStealing: true
                onPressed: (mouse) => {
                    handle.pressX = mapToGlobal(mouse.x, 0).x
                    clipView.editor.beginTrim(clipView.index, handle.edge, clipView.width)
                }
                onPositionChanged: (mouse) => clipView.editor.trimBy(mapToGlobal(mouse.x, 0).x - handle.pressX)
                onReleased: clipView.editor.endTrim()
                onCanceled: clipView.editor.endTrim()
            }
        }
    }
}
