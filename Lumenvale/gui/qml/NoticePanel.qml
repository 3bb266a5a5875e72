import QtQuick
import QtQuick.Window

// A short-lived notice: its text on a glass capsule, 480 wide.
Window {
    required property QtObject notice
    width: 480
    height: label.implicitHeight + 24
    color: "transparent"
    title: "Notice"

    PanelGlass {
        anchors.fill: parent
        radius: Math.min(height / 2, 22)
    }
    Text {
        id: label
        anchors.fill: parent
        anchors.leftMargin: 20
        anchors.rightMargin: 20
        verticalAlignment: Text.AlignVCenter
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        text: notice.text
        color: "white"
        font.pixelSize: 14
        font.weight: Font.Medium
        Accessible.role: Accessible.AlertMessage
        Accessible.name: text
    }
}
