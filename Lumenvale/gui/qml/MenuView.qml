import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The tray's popup menu: 280 wide, the status header while a recording runs, then the
// rows of the menu model. Choosing a row closes the menu first. Ctrl+, opens Settings
// and Ctrl+Q quits while the menu has focus; Escape or a click elsewhere closes it.
Window {
    id: menuWindow
    objectName: "menu"
    title: "Lumenvale"
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    width: 280
    height: column.implicitHeight + 10
    color: "transparent"

    onActiveChanged: if (!active) close()

    function choose(row) {
        menuWindow.close()
        menu.choose(row)
    }

    Shortcut { sequence: "Ctrl+,"; onActivated: menuWindow.choose("settings") }
    Shortcut { sequence: "Ctrl+Q"; onActivated: menuWindow.choose("quit") }
    Shortcut { sequence: "Escape"; onActivated: menuWindow.close() }

    Rectangle {
        anchors.fill: parent
        radius: 8
        color: theme.window
        border.color: theme.divider
        border.width: 1

        ColumnLayout {
            id: column
            anchors.fill: parent
            anchors.margins: 5
            spacing: 0

            // Status header: only while recording or paused.
            RowLayout {
                visible: menu.headerVisible
                Layout.fillWidth: true
                Layout.leftMargin: 12
                Layout.rightMargin: 12
                Layout.topMargin: 8
                Layout.bottomMargin: 8
                spacing: 8
                RecordDot {}
                Label {
                    objectName: "menuHeaderText"
                    text: menu.headerText
                    color: theme.recording
                    font.weight: Font.Medium
                    Layout.fillWidth: true
                    Accessible.name: text
                }
                Button {
                    Accessible.onPressAction: clicked()
                    text: "Stop"
                    Accessible.name: "Stop"
                    palette.buttonText: theme.recording
                    onClicked: menuWindow.choose("stop")
                }
            }

            Repeater {
                model: menu.lines
                delegate: Loader {
                    required property var modelData
                    Layout.fillWidth: true
                    // The header's Stop is the button above, not a row.
                    active: modelData.divider || modelData.row !== "stop"
                    visible: active
                    sourceComponent: modelData.divider ? divider : menuRow
                    Component {
                        id: divider
                        Rectangle {
                            implicitHeight: 9
                            color: "transparent"
                            Rectangle {
                                anchors.verticalCenter: parent.verticalCenter
                                width: parent.width
                                height: 1
                                color: theme.divider
                            }
                        }
                    }
                    Component {
                        id: menuRow
                        MenuRow {
                            title: modelData.title
                            iconName: modelData.iconName
                            shortcut: modelData.shortcut
                            enabled: modelData.enabled
                            onClicked: menuWindow.choose(modelData.row)
                        }
                    }
                }
            }
        }
    }
}
