import QtQuick
import QtQuick.Window

// The 3-2-1 before a recording starts: a disc with the digit springing in, and how to
// cancel. `countdown` (RecordingCountdown) holds the digit.
Window {
    required property QtObject countdown
    width: 200
    height: 200
    color: "transparent"
    title: "Countdown"

    Rectangle {
        anchors.centerIn: parent
        width: 160
        height: 160
        radius: 80
        color: Qt.rgba(0.11, 0.11, 0.12, 0.86)
        border.color: Qt.rgba(1, 1, 1, 0.18)
        Accessible.role: Accessible.StaticText
        Accessible.name: "Recording starts in " + countdown.number

        Text {
            id: digit
            anchors.centerIn: parent
            anchors.verticalCenterOffset: -8
            text: countdown.number
            color: "white"
            font.pixelSize: 72
            font.weight: Font.DemiBold
            onTextChanged: { scale = 0.55; spring.restart() }
            SpringAnimation on scale { id: spring; to: 1; spring: 4.5; damping: 0.35; running: false }
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            anchors.top: digit.bottom
            anchors.topMargin: -6
            text: "Esc to cancel"
            color: Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 12
        }
    }
}
