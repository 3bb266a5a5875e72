import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

ColumnLayout {
    spacing: 12

    SettingRow {
        label: "Save recordings to:"
        Label {
            objectName: "saveFolderPath"
            text: settings.saveFolder
            color: theme.text
            elide: Text.ElideMiddle
            Layout.fillWidth: true
            Accessible.name: "Save folder: " + settings.saveFolder
        }
        Button {
            Accessible.onPressAction: clicked()
            text: "Choose…"
            Accessible.name: "Choose save folder"
            onClicked: folderDialog.open()
        }
    }
    FolderDialog {
        id: folderDialog
        title: "Choose where recordings are saved"
        currentFolder: "file://" + settings.saveFolder
        onAccepted: settings.saveFolder = selectedFolder
    }
    SettingRow {
        label: "Login:"
        CheckBox {
            Accessible.onPressAction: { toggle(); toggled() }
            Accessible.onToggleAction: { toggle(); toggled() }
            text: "Start Lumenvale at login"
            checked: settings.startAtLogin
            onToggled: settings.startAtLogin = checked
            Accessible.name: text
        }
    }
    SettingRow {
        label: "Updates:"
        ColumnLayout {
            spacing: 4
            CheckBox {
                Accessible.onPressAction: { toggle(); toggled() }
                Accessible.onToggleAction: { toggle(); toggled() }
                text: "Check for updates automatically"
                checked: updates.automaticallyChecks
                onToggled: updates.automaticallyChecks = checked
                Accessible.name: text
            }
            CheckBox {
                Accessible.onPressAction: { toggle(); toggled() }
                Accessible.onToggleAction: { toggle(); toggled() }
                text: "Get beta versions"
                checked: updates.beta
                onToggled: updates.beta = checked
                Accessible.name: text
            }
        }
    }
    Label {
        objectName: "settingsProblem"
        visible: settings.problem.length > 0
        text: settings.problem
        color: theme.recording
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
    }
}
