import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The global shortcuts, or, where the desktop lets no application hold any, the
// commands to bind in the desktop's own keyboard settings.
ColumnLayout {
    spacing: 12

    function stopRecording() {
        screenShortcut.stop(); areaShortcut.stop(); windowShortcut.stop(); stopShortcut.stop()
    }

    ColumnLayout {
        visible: hotkeys.offered
        spacing: 12
        Layout.fillWidth: true
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
    ColumnLayout {
        visible: !hotkeys.offered
        spacing: 8
        Layout.fillWidth: true
        Label {
            text: "This desktop doesn’t let applications set global shortcuts. Bind these in your desktop’s keyboard settings:"
            color: theme.text
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.name: text
        }
        TextArea {
            readOnly: true
            selectByMouse: true
            font.family: "monospace"
            text: "lumenvale screen\nlumenvale area\nlumenvale window\nlumenvale stop"
            Layout.fillWidth: true
            Accessible.name: "Commands to bind"
        }
        Label {
            text: "Record commands start that recording, or stop the one in progress."
            color: theme.secondaryText
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
        }
    }
}
