import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One step of the welcome window: a symbol in a 32-wide column, a title and an
// explanation under it, and the step's control, if any, below.
RowLayout {
    id: step
    property string symbol
    property string title
    property string explanation
    default property alias control: controls.data
    spacing: 12
    Layout.fillWidth: true

    Label {
        text: step.symbol
        font.pixelSize: 22
        color: theme.accent
        horizontalAlignment: Text.AlignHCenter
        Layout.preferredWidth: 32
        Layout.alignment: Qt.AlignTop
        Accessible.ignored: true
    }
    ColumnLayout {
        spacing: 4
        Layout.fillWidth: true
        Label {
            text: step.title
            font.bold: true
            color: theme.text
        }
        Label {
            text: step.explanation
            color: theme.secondaryText
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
        }
        RowLayout {
            id: controls
            visible: children.length > 0
        }
    }
}
