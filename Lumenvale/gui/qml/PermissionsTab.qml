import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    spacing: 14

    Repeater {
        model: permissionList.rows
        delegate: RowLayout {
            required property var modelData
            spacing: 12
            Layout.fillWidth: true
            Label {
                text: modelData.held ? "✔" : "✖"
                color: modelData.held ? theme.success : theme.recording
                font.pixelSize: 18
                Accessible.ignored: true
            }
            ColumnLayout {
                spacing: 2
                Layout.fillWidth: true
                Label {
                    text: modelData.title
                    font.bold: true
                    color: theme.text
                    Accessible.name: modelData.title + (modelData.held ? ": allowed" : ": not available")
                }
                Label {
                    text: modelData.detail
                    color: theme.secondaryText
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                }
            }
            Button {
                Accessible.onPressAction: clicked()
                visible: modelData.action.length > 0
                text: modelData.action
                Accessible.name: modelData.action + " (" + modelData.title + ")"
                onClicked: permissionList.help(modelData.kind)
            }
        }
    }
}
