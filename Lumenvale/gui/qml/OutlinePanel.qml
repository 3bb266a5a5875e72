import QtQuick
import QtQuick.Window

// The dashed line just outside a recorded area: white dashes (8 on, 4 off, 2 wide)
// over a black line at half opacity, so it shows on light and dark content alike.
Window {
    color: "transparent"
    title: "Recorded area"

    Canvas {
        anchors.fill: parent
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()
        onPaint: {
            const context = getContext("2d")
            context.reset()
            context.lineWidth = 2
            context.strokeStyle = Qt.rgba(0, 0, 0, 0.5)
            context.strokeRect(1, 1, width - 2, height - 2)
            context.setLineDash([4, 2]) // in line widths
            context.strokeStyle = "white"
            context.strokeRect(1, 1, width - 2, height - 2)
        }
    }
}
