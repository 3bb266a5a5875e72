import QtQuick

// A label of the picker: white medium text on a black capsule at 60 %, padded 12 × 6.
Rectangle {
    property alias text: label.text
    width: label.implicitWidth + 24
    height: label.implicitHeight + 12
    radius: height / 2
    color: Qt.rgba(0, 0, 0, 0.6)
    Accessible.role: Accessible.StaticText
    Accessible.name: label.text
    Text {
        id: label
        anchors.centerIn: parent
        color: "white"
        font.pixelSize: 13
        font.weight: Font.Medium
    }
}
