import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One labelled line of a settings tab: the label in a fixed column, the control beside.
RowLayout {
    id: line
    property string label
    default property alias control: holder.data
    spacing: 12
    Layout.fillWidth: true
    Label {
        text: line.label
        color: theme.text
        horizontalAlignment: Text.AlignRight
        Layout.preferredWidth: 150
    }
    RowLayout {
        id: holder
        Layout.fillWidth: true
        spacing: 8
    }
}
