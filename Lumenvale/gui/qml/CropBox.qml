import QtQuick

// The crop box over the video picture (this item covers exactly the picture): the
// outside dimmed, the crop outlined, a handle at each corner. Dragging inside moves
// the box; dragging a handle resizes it; each drag is one undo step.
Item {
    id: box
    required property QtObject editor
    readonly property rect crop: editor.crop
    readonly property real cropLeft: crop.x * width
    readonly property real cropTop: crop.y * height
    readonly property real cropRight: (crop.x + crop.width) * width
    readonly property real cropBottom: (crop.y + crop.height) * height
    property point pressPoint

    function begin(mouseArea, mouse) {
        pressPoint = mouseArea.mapToItem(box, mouse.x, mouse.y)
        editor.beginCropDrag()
    }
    function drag(handle, mouseArea, mouse) {
        const at = mouseArea.mapToItem(box, mouse.x, mouse.y)
        editor.dragCrop(handle, (at.x - pressPoint.x) / width, (at.y - pressPoint.y) / height)
    }

    // The dim outside the crop; it lets clicks through to nothing below.
    Rectangle { x: 0; y: 0; width: parent.width; height: box.cropTop; color: Qt.rgba(0, 0, 0, 0.55) }
    Rectangle { x: 0; y: box.cropBottom; width: parent.width; height: parent.height - box.cropBottom; color: Qt.rgba(0, 0, 0, 0.55) }
    Rectangle { x: 0; y: box.cropTop; width: box.cropLeft; height: box.cropBottom - box.cropTop; color: Qt.rgba(0, 0, 0, 0.55) }
    Rectangle { x: box.cropRight; y: box.cropTop; width: parent.width - box.cropRight; height: box.cropBottom - box.cropTop; color: Qt.rgba(0, 0, 0, 0.55) }

    Rectangle {
        x: box.cropLeft
        y: box.cropTop
        width: box.cropRight - box.cropLeft
        height: box.cropBottom - box.cropTop
        color: "transparent"
        border.color: "white"
        border.width: 2
        Accessible.role: Accessible.Graphic
        Accessible.name: "Crop Box"
        MouseArea {
            anchors.fill: parent
            cursorShape: Qt.SizeAllCursor
            preventStealing: true
            onPressed: (mouse) => box.begin(this, mouse)
            onPositionChanged: (mouse) => box.drag(-1, this, mouse)
            onReleased: box.editor.endCropDrag()
            onCanceled: box.editor.endCropDrag()
        }
    }
    Repeater {
        model: ["Top-Left", "Top-Right", "Bottom-Left", "Bottom-Right"]
        Rectangle {
            required property int index
            required property string modelData
            x: (index % 2 === 0 ? box.cropLeft : box.cropRight) - 6
            y: (index < 2 ? box.cropTop : box.cropBottom) - 6
            width: 12
            height: 12
            color: "white"
            border.color: Qt.rgba(0, 0, 0, 0.33)
            Accessible.role: Accessible.Graphic
            Accessible.name: "Crop " + modelData + " Corner"
            MouseArea {
                anchors.fill: parent
                anchors.margins: -4
                cursorShape: index === 0 || index === 3 ? Qt.SizeFDiagCursor : Qt.SizeBDiagCursor
                preventStealing: true
                onPressed: (mouse) => box.begin(this, mouse)
                onPositionChanged: (mouse) => box.drag(index, this, mouse)
                onReleased: box.editor.endCropDrag()
                onCanceled: box.editor.endCropDrag()
            }
        }
    }
}
