import QtQuick
import QtQuick.Controls

// A button of the floating panels: white medium text, padded 12 × 4, on `fill` when it
// has one, drawn at 70 % opacity while pressed.
AbstractButton {
    id: button
    // Assistive technology presses controls through their accessible actions, which
    // Qt Quick Controls 6.4 list but do not carry out.
    Accessible.onPressAction: clicked()
    property color fill: "transparent"
    property string symbol
    Accessible.role: Accessible.Button
    Accessible.name: text
    focusPolicy: Qt.NoFocus
    leftPadding: 12
    rightPadding: 12
    topPadding: 4
    bottomPadding: 4
    opacity: pressed ? 0.7 : 1.0
    contentItem: Row {
        spacing: 6
        Text {
            text: button.symbol
            visible: text.length > 0
            color: "white"
            font.pixelSize: 13
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            text: button.text
            color: "white"
            font.pixelSize: 14
            font.weight: Font.Medium
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    background: Rectangle {
        radius: height / 2
        color: button.fill
        border.color: button.fill === Qt.color("transparent") ? Qt.rgba(1, 1, 1, 0.35) : "transparent"
    }
}
