import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The first launch's welcome: where Lumenvale lives, the screen permission, the
// shortcuts. "Get Started" closes it for good; the close button only until next launch.
FixedWindow {
    id: welcomeWindow
    objectName: "welcome"
    title: "Welcome to Lumenvale"
    color: theme.window
    fitWidth: 520
    fitHeight: content.implicitHeight + 64

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: 32
        spacing: 20

        ColumnLayout {
            spacing: 8
            Layout.alignment: Qt.AlignHCenter
            Image {
                source: "qrc:/icons/app.svg"
                sourceSize: Qt.size(96, 96)
                Layout.preferredWidth: 96
                Layout.preferredHeight: 96
                Layout.alignment: Qt.AlignHCenter
                Accessible.ignored: true
            }
            Label {
                text: "Welcome to Lumenvale"
                font.pixelSize: 26
                font.weight: Font.DemiBold
                color: theme.text
                Layout.alignment: Qt.AlignHCenter
            }
            Label {
                text: "Record your screen, an area, or a window. Cut it, then share the MP4."
                color: theme.text
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
                Layout.fillWidth: true
            }
        }

        WelcomeStep {
            symbol: "●"
            title: "Lumenvale lives in the menu bar"
            explanation: "Click the record icon at the top of the screen to start a recording, open the editor, or change settings."
        }
        WelcomeStep {
            symbol: "⬚"
            title: "Allow Screen Recording"
            explanation: "Lumenvale records only while you record, and keeps every movie on this computer."
            Label {
                visible: app.screenAllowed
                text: "✔ Allowed"
                color: theme.success
                Accessible.name: "Screen recording allowed"
            }
            Button {
                Accessible.onPressAction: clicked()
                visible: !app.screenAllowed
                text: "Allow Screen Recording"
                Accessible.name: text
                onClicked: app.requestScreen()
            }
        }
        WelcomeStep {
            symbol: "⌘"
            title: "Set your shortcuts"
            explanation: "Record Screen, Area, Window, and Stop have no shortcuts until you pick them."
            Button {
                Accessible.onPressAction: clicked()
                text: "Open Settings…"
                Accessible.name: text
                onClicked: app.openSettings()
            }
        }

        Button {
            Accessible.onPressAction: clicked()
            text: "Get Started"
            highlighted: true
            Layout.alignment: Qt.AlignHCenter
            Accessible.name: text
            onClicked: app.finishWelcome()
        }
    }
}
