import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    spacing: 12

    function stopRecording() {
        screenShortcut.stop(); areaShortcut.stop(); windowShortcut.stop(); stopShortcut.stop()
    }

    ShortcutField { title: "Record Screen"; field: screenShortcut }
    ShortcutField { title: "Record Area"; field: areaShortcut }
    ShortcutField { title: "Record Window"; field: windowShortcut }
    ShortcutField { title: "Stop Recording"; field: stopShortcut }
    Label {
        text: "Press a record shortcut again while recording to stop. Esc cancels a shortcut field, Delete clears it."
        color: theme.secondaryText
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
    }
}
