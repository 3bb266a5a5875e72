import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One row of the menu: icon, title and (right-aligned, secondary) shortcut. Hovered and
// enabled, it shows the accent in a rounded rectangle with white text; disabled, it is
// faded and never highlighted.
AbstractButton {
    // Assistive technology presses controls through their accessible actions, which
    // Qt Quick Controls 6.4 list but do not carry out; every control here handles them.
    Accessible.onPressAction: clicked()
    id: row
    property string title
    property string iconName
    property string shortcut

    Layout.fillWidth: true
    implicitHeight: content.implicitHeight + 8
    hoverEnabled: true
    opacity: enabled ? 1.0 : 0.4
    Accessible.role: Accessible.MenuItem
    Accessible.name: title
    Accessible.description: shortcut

    readonly property bool highlighted: (hovered || visualFocus) && enabled

    background: Rectangle {
        radius: 4
        color: row.highlighted ? theme.accent : "transparent"
    }

    contentItem: RowLayout {
        id: content
        spacing: 8
        anchors.leftMargin: 8
        anchors.rightMargin: 8
        Image {
            Layout.preferredWidth: 16
            Layout.preferredHeight: 16
            source: row.iconName ? "image://theme/" + row.iconName : ""
            visible: status === Image.Ready
            sourceSize: Qt.size(16, 16)
        }
        Label {
            text: row.title
            color: row.highlighted ? "white" : theme.text
            Layout.fillWidth: true
            elide: Text.ElideRight
        }
        Label {
            text: row.shortcut
            visible: row.shortcut.length > 0
            color: row.highlighted ? "white" : theme.secondaryText
        }
    }
    leftPadding: 8
    rightPadding: 8
    topPadding: 4
    bottomPadding: 4
}
