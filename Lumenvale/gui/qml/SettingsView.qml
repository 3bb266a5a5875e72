import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The Settings window: fixed size (it takes the size of its widest tab's content; the
// user cannot resize it), tabs General, Shortcuts, Video, Audio, Permissions. Every
// change is stored at once and used by the next recording.
FixedWindow {
    id: settingsWindow
    objectName: "settings"
    title: "Lumenvale Settings"
    color: theme.window
    fitWidth: 560
    fitHeight: Math.max(tabs.implicitHeight + pages.implicitHeight + 48, 320)

    // A field that records a shortcut stops when the window closes; the microphone list
    // follows the sound server only while the window is open.
    onVisibleChanged: {
        settings.watching = visible
        if (!visible)
            shortcutsTab.stopRecording()
    }

    Shortcut { sequence: "Ctrl+W"; onActivated: settingsWindow.close() }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 16

        TabBar {
            id: tabs
            objectName: "settingsTabs"
            Layout.fillWidth: true
            Accessible.name: "Settings sections"
            Repeater {
                model: ["General", "Shortcuts", "Video", "Audio", "Permissions"]
                TabButton {
                    Accessible.onPressAction: checked = true
                    required property string modelData
                    text: modelData
                    Accessible.name: modelData
                }
            }
        }

        StackLayout {
            id: pages
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: tabs.currentIndex
            implicitHeight: children[currentIndex] ? children[currentIndex].implicitHeight : 0
            GeneralTab {}
            ShortcutsTab { id: shortcutsTab }
            VideoTab {}
            AudioTab {}
            PermissionsTab {}
        }
    }
}
