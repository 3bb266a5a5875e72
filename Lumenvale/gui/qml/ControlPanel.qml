import QtQuick
import QtQuick.Window
import QtQuick.Controls

// The floating control while a recording runs: a dot to drag it by, the elapsed time,
// Pause/Resume and Stop. `control` (RecordingControl) feeds it and takes its presses.
Window {
    id: window
    required property QtObject control
    width: row.implicitWidth + 32
    height: row.implicitHeight + 16
    color: "transparent"
    title: "Recording control"

    PanelGlass {
        anchors.fill: parent
        radius: height / 2
    }
    Row {
        id: row
        anchors.centerIn: parent
        spacing: 12
        Item {
            width: 18
            height: 18
            anchors.verticalCenter: parent.verticalCenter
            Accessible.role: Accessible.Indicator
            Accessible.name: control.paused ? "Paused" : "Recording"
            Accessible.description: "Drag to move"
            Rectangle {
                anchors.centerIn: parent
                width: 10
                height: 10
                radius: 5
                color: control.paused ? "#8e8e93" : theme.recording
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.OpenHandCursor
                property point pressedAt
                property point originAt
                onPressed: mouse => {
                    pressedAt = mapToGlobal(mouse.x, mouse.y)
                    originAt = Qt.point(window.x, window.y)
                }
                onPositionChanged: mouse => {
                    const now = mapToGlobal(mouse.x, mouse.y)
                    window.x = originAt.x + now.x - pressedAt.x
                    window.y = originAt.y + now.y - pressedAt.y
                }
                ToolTip.visible: containsMouse && !pressed
                ToolTip.text: "Drag to move"
                hoverEnabled: true
            }
        }
        Text {
            text: control.elapsedText
            color: "white"
            font.pixelSize: 15
            font.weight: Font.Medium
            anchors.verticalCenter: parent.verticalCenter
            Accessible.role: Accessible.StaticText
            Accessible.name: "Elapsed time " + text
        }
        PanelButton {
            text: control.paused ? "Resume" : "Pause"
            symbol: control.paused ? "▶" : "❚❚"
            anchors.verticalCenter: parent.verticalCenter
            onClicked: control.paused ? control.resume() : control.pause()
        }
        PanelButton {
            text: "Stop"
            symbol: "■"
            fill: theme.recording
            anchors.verticalCenter: parent.verticalCenter
            onClicked: control.stop()
        }
    }
}
