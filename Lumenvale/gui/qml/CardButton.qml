import QtQuick
import QtQuick.Controls

// A button of the recording card: its glyph, with its title beside it or, for the
// icon-only ones, as a tooltip.
AbstractButton {
    id: button
    // Assistive technology presses controls through their accessible actions, which
    // Qt Quick Controls 6.4 list but do not carry out.
    Accessible.onPressAction: clicked()
    property string glyph
    property bool showsTitle: false
    property bool showsTooltip: true
    Accessible.role: Accessible.Button
    Accessible.name: text
    focusPolicy: Qt.NoFocus
    hoverEnabled: true
    padding: 6
    leftPadding: 8
    rightPadding: 8
    opacity: pressed ? 0.7 : 1.0
    ToolTip.visible: showsTooltip && !showsTitle && hovered
    ToolTip.text: text
    ToolTip.delay: 500
    contentItem: Row {
        spacing: 5
        Text {
            width: 16
            horizontalAlignment: Text.AlignHCenter
            anchors.verticalCenter: parent.verticalCenter
            text: button.glyph
            color: "white"
            font.pixelSize: 14
        }
        Text {
            visible: button.showsTitle
            text: button.text
            color: "white"
            font.pixelSize: 13
            font.weight: Font.Medium
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    background: Rectangle {
        radius: 6
        color: button.hovered ? Qt.rgba(1, 1, 1, 0.16) : Qt.rgba(1, 1, 1, 0.08)
    }
}
