import QtQuick

// The timeline: the ruler over the clips, the whole output fitted to the width, and
// the playhead. A press or drag on the ruler moves the playhead.
Item {
    id: timeline
    required property QtObject editor
    readonly property QtObject model: editor.model
    readonly property real scale: editor.timelineScale(width, model.outputDuration)
    implicitHeight: column.implicitHeight
    Accessible.role: Accessible.Grouping
    Accessible.name: "Timeline"

    Column {
        id: column
        width: parent.width
        spacing: 4
        Ruler {
            id: ruler
            width: parent.width
            editor: timeline.editor
            duration: Math.max(timeline.model.outputDuration, 0.001)
            scale: timeline.scale
            MouseArea {
                anchors.fill: parent
                preventStealing: true
                onPressed: (mouse) => timeline.model.seek(mouse.x / timeline.scale)
                onPositionChanged: (mouse) => timeline.model.seek(mouse.x / timeline.scale)
            }
        }
        Row {
            Repeater {
                // By count, so a drag's clip view lives while the edit changes under it.
                model: timeline.editor.clips.length
                ClipView {
                    editor: timeline.editor
                    clip: timeline.editor.clips[index]
                    scale: timeline.scale
                }
            }
        }
    }
    Rectangle {
        id: playhead
        x: timeline.editor.playheadX(timeline.model.time, timeline.scale, timeline.width)
        width: 2
        height: timeline.height
        color: theme.recording
        Accessible.role: Accessible.Indicator
        Accessible.name: "Playhead"
    }
}
