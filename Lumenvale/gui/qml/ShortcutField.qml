import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The field that picks one action's global shortcut (a ShortcutRecorder model): the
// button records the next key press of this window; Clear removes the shortcut; the
// caption shows the field's note or that another application holds the combination.
SettingRow {
    id: row
    required property var field
    required property string title
    label: title + ":"

    ColumnLayout {
        spacing: 2
        RowLayout {
            spacing: 8
            Button {
                Accessible.onPressAction: clicked()
                id: recordButton
                text: row.field.label
                Layout.minimumWidth: 120
                highlighted: row.field.recording
                Accessible.name: row.title + " shortcut"
                Accessible.description: text
                onClicked: row.field.toggle()
                // While recording, every key press goes to the field and nowhere else.
                Keys.onPressed: (event) => {
                    if (!row.field.recording)
                        return
                    row.field.recordKeyEvent(event.nativeScanCode, event.modifiers)
                    event.accepted = true
                }
                Keys.onShortcutOverride: (event) => { event.accepted = row.field.recording }
            }
            Button {
                Accessible.onPressAction: clicked()
                text: "Clear"
                visible: row.field.clearable
                flat: true
                Accessible.name: "Clear " + row.title + " shortcut"
                onClicked: row.field.clear()
            }
        }
        Label {
            text: row.field.caption
            visible: text.length > 0
            font.pixelSize: 11
            color: row.field.captionKind === 2 ? theme.recording : theme.secondaryText
            Accessible.name: text
        }
    }
}
