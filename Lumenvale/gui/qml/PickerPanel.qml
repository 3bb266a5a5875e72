import QtQuick
import QtQuick.Window

// The picker on one display (SelectionOverlay): the display dimmed, with the dragged
// area cut out of the dim and outlined, its size under it; or the window under the
// pointer lit in the accent colour; and the hint at the top. Rectangles arrive in this
// view's coordinates; the pointer goes to `overlay` in global coordinates.
Window {
    id: picker
    required property QtObject overlay
    required property bool windowMode
    // A still of the display, shown under the dim where no compositor blends it.
    required property string still
    property rect dragRect
    property string sizeText
    property rect hoverRect
    readonly property bool dragging: dragRect.width > 0 && dragRect.height > 0
    readonly property color dim: Qt.rgba(0, 0, 0, 0.3)
    color: "transparent"
    title: windowMode ? "Choose a window to record" : "Choose an area to record"

    Image {
        anchors.fill: parent
        source: picker.still
        visible: picker.still.length > 0
        cache: false
    }
    // The dim, in four pieces around the dragged area (the whole display without one).
    Rectangle {
        x: 0; y: 0; width: parent.width
        height: picker.dragging ? Math.max(0, picker.dragRect.y) : parent.height
        color: picker.dim
    }
    Rectangle {
        visible: picker.dragging
        x: 0; y: picker.dragRect.y + picker.dragRect.height
        width: parent.width; height: Math.max(0, parent.height - y)
        color: picker.dim
    }
    Rectangle {
        visible: picker.dragging
        x: 0; y: picker.dragRect.y
        width: Math.max(0, picker.dragRect.x); height: picker.dragRect.height
        color: picker.dim
    }
    Rectangle {
        visible: picker.dragging
        x: picker.dragRect.x + picker.dragRect.width; y: picker.dragRect.y
        width: Math.max(0, parent.width - x); height: picker.dragRect.height
        color: picker.dim
    }
    // The line just outside the dragged area.
    Rectangle {
        visible: picker.dragging
        x: picker.dragRect.x - 1; y: picker.dragRect.y - 1
        width: picker.dragRect.width + 2; height: picker.dragRect.height + 2
        color: "transparent"
        border.color: "white"
        border.width: 1
    }
    PickerLabel {
        visible: picker.dragging
        text: picker.sizeText
        x: picker.dragRect.x + picker.dragRect.width / 2 - width / 2
        y: Math.min(picker.dragRect.y + picker.dragRect.height + 24, picker.height - 16) - height / 2
    }
    // The window under the pointer.
    Rectangle {
        visible: picker.hoverRect.width > 0
        x: picker.hoverRect.x + 1; y: picker.hoverRect.y + 1
        width: picker.hoverRect.width - 2; height: picker.hoverRect.height - 2
        color: Qt.rgba(theme.accent.r, theme.accent.g, theme.accent.b, 0.25)
        border.color: theme.accent
        border.width: 2
    }
    PickerLabel {
        text: picker.windowMode ? "Click a window to record it.  Esc to cancel."
                                : "Drag to record an area.  Esc to cancel."
        x: (picker.width - width) / 2
        y: 96 - height / 2
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        Accessible.role: Accessible.Canvas
        Accessible.name: picker.windowMode ? "Windows to record" : "Area to record"
        Accessible.description: picker.windowMode ? "Click a window to record it."
                                                  : "Drag to record an area."
        cursorShape: picker.windowMode ? Qt.PointingHandCursor : Qt.CrossCursor
        onPressed: mouse => {
            const at = mapToGlobal(mouse.x, mouse.y)
            picker.overlay.pointerPressed(at.x, at.y)
        }
        onPositionChanged: mouse => {
            const at = mapToGlobal(mouse.x, mouse.y)
            picker.overlay.pointerMoved(at.x, at.y)
        }
        onReleased: mouse => {
            const at = mapToGlobal(mouse.x, mouse.y)
            picker.overlay.pointerReleased(at.x, at.y)
        }
    }
}
