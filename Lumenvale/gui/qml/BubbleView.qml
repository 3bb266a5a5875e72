import QtQuick
import QtMultimedia

// The camera bubble: the camera's picture filling the window, cropped to fill it and
// mirrored like a selfie. CameraBubble (C++) owns the window: its flags, place, size and
// round mask, the pointer, and the picture it feeds into the output's videoSink.
Window {
    title: qsTr("Camera")
    color: "#202020"

    VideoOutput {
        id: picture
        objectName: "picture"
        anchors.fill: parent
        fillMode: VideoOutput.PreserveAspectCrop
        transform: Scale {
            origin.x: picture.width / 2
            xScale: -1
        }
        Accessible.role: Accessible.Graphic
        Accessible.name: qsTr("Camera")
    }

    // A faint ring, so the bubble reads as one object against any background.
    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: "transparent"
        border.color: Qt.rgba(1, 1, 1, 0.5)
        border.width: 2
        antialiasing: true
    }
}
