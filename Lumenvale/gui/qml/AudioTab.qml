import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    spacing: 12

    SettingRow {
        label: "System audio:"
        CheckBox {
            Accessible.onPressAction: { toggle(); toggled() }
            Accessible.onToggleAction: { toggle(); toggled() }
            text: "Record what the computer plays"
            checked: settings.systemAudio
            onToggled: settings.systemAudio = checked
            Accessible.name: "Record system audio"
        }
    }
    SettingRow {
        label: "Microphone:"
        CheckBox {
            Accessible.onPressAction: { toggle(); toggled() }
            Accessible.onToggleAction: { toggle(); toggled() }
            text: "Record the microphone"
            checked: settings.microphone
            onToggled: settings.microphone = checked
            Accessible.name: text
        }
    }
    SettingRow {
        label: ""
        enabled: settings.microphone
        ComboBox {
            id: microphones
            Accessible.name: "Microphone source"
            model: settings.microphones
            textRole: "title"
            valueRole: "id"
            Layout.fillWidth: true
            // The list changes as microphones come and go: keep showing the chosen one.
            currentIndex: settings.microphones.findIndex(entry => entry.id === settings.microphoneID)
            onActivated: settings.microphoneID = currentValue
        }
    }
}
