import QtQuick
import QtQuick.Controls
import QtQuick.Window

// The card of a finished movie (RecordingCard): poster with its duration, and Edit,
// Copy, Share, Show in Folder and Close. The poster drags out as the movie file.
Window {
    id: window
    required property QtObject card
    width: 312
    height: column.implicitHeight + 24
    color: "transparent"
    title: "Recording saved"

    HoverHandler {
        onHoveredChanged: window.card.hovering = hovered
    }
    PanelGlass {
        anchors.fill: parent
        anchors.margins: 4
        radius: 16
    }
    Column {
        id: column
        x: 12
        y: 12
        spacing: 8

        Rectangle {
            id: thumbnail
            width: 288
            height: 180
            radius: 8
            clip: true
            color: Qt.rgba(1, 1, 1, 0.12)
            visible: card.hasRecording
            Accessible.role: Accessible.Graphic
            Accessible.name: "Recording, " + card.durationText
            Image {
                anchors.fill: parent
                source: card.posterSource
                visible: source !== ""
                fillMode: Image.PreserveAspectCrop
                cache: false
            }
            Text {
                anchors.centerIn: parent
                visible: card.posterSource === ""
                text: "🎞"
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 28
            }
            Rectangle {
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                anchors.margins: 8
                width: duration.implicitWidth + 16
                height: duration.implicitHeight + 4
                radius: 4
                color: Qt.rgba(0, 0, 0, 0.6)
                Text {
                    id: duration
                    anchors.centerIn: parent
                    text: card.durationText
                    color: "white"
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
            }
            ToolTip.visible: thumbnailDrag.hovered && !thumbnailDrag.active
            ToolTip.text: card.fileName
            ToolTip.delay: 500
            // Dragged out, the poster is the movie file for whatever takes files.
            Drag.active: thumbnailDrag.active
            Drag.dragType: Drag.Automatic
            Drag.supportedActions: Qt.CopyAction
            Drag.mimeData: { "text/uri-list": card.fileUrl.toString() }
            DragHandler {
                id: thumbnailDrag
                target: null
                property bool hovered: thumbnailHover.hovered
            }
            HoverHandler { id: thumbnailHover }
        }
        Row {
            spacing: 6
            CardButton { text: "Edit"; glyph: "✎"; showsTitle: true; onClicked: card.edit() }
            CardButton { text: "Copy"; glyph: "❐"; showsTitle: true; onClicked: card.copy() }
            CardButton {
                id: shareButton
                text: "Share"; glyph: "↗"
                onClicked: {
                    const at = shareButton.mapToGlobal(shareButton.width / 2, 0)
                    card.share(at.x, at.y)
                }
            }
            CardButton { text: "Show in Folder"; glyph: "▤"; onClicked: card.reveal() }
            CardButton { text: "Close"; glyph: "✕"; showsTooltip: false; onClicked: card.close() }
        }
    }
}
