import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The result of a check for updates by hand: a sentence, and a button that opens the
// release's download page when there is one. Nothing is installed from here.
FixedWindow {
    id: resultWindow
    objectName: "updateCheck"
    title: "Software Update"
    color: theme.window
    property string resultText
    property url downloadPage
    fitWidth: 380
    fitHeight: content.implicitHeight + 40

    Shortcut { sequence: "Escape"; onActivated: resultWindow.close() }

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: 20
        spacing: 16
        Label {
            objectName: "updateResult"
            text: resultWindow.resultText
            color: theme.text
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.name: text
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            Button {
                Accessible.onPressAction: clicked()
                text: "Download…"
                visible: resultWindow.downloadPage.toString().length > 0
                Accessible.name: text
                onClicked: { app.openLink(resultWindow.downloadPage); resultWindow.close() }
            }
            Button {
                Accessible.onPressAction: clicked()
                text: "OK"
                highlighted: true
                Accessible.name: "Close"
                onClicked: resultWindow.close()
            }
        }
    }
}
