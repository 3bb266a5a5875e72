import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// About: icon, name, version, maker and a link to the maker's site.
FixedWindow {
    id: aboutWindow
    objectName: "about"
    title: "About Lumenvale"
    color: theme.window
    fitWidth: 320
    fitHeight: content.implicitHeight + 48

    Shortcut { sequence: "Escape"; onActivated: aboutWindow.close() }

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: 24
        spacing: 8

        Image {
            source: "qrc:/icons/app.svg"
            sourceSize: Qt.size(96, 96)
            Layout.alignment: Qt.AlignHCenter
            Accessible.ignored: true
        }
        Label {
            text: "Lumenvale"
            font.pixelSize: 20
            font.bold: true
            color: theme.text
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            objectName: "aboutVersion"
            text: "Version " + app.version
            color: theme.secondaryText
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            text: "A Tessaly product"
            font.pixelSize: 11
            color: theme.secondaryText
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            text: "<a href=\"" + app.makerUrl + "\">" + app.makerName + "</a>"
            font.pixelSize: 11
            linkColor: theme.accent
            onLinkActivated: (link) => app.openLink(link)
            Layout.alignment: Qt.AlignHCenter
            Accessible.name: app.makerName
            Accessible.role: Accessible.Link
        }
        Button {
            Accessible.onPressAction: clicked()
            text: "OK"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            Accessible.name: "Close About"
            onClicked: aboutWindow.close()
        }
    }
}
