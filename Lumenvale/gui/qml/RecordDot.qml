import QtQuick

// The pulsing red dot that says a recording runs.
Rectangle {
    id: dot
    implicitWidth: 10
    implicitHeight: 10
    radius: 5
    color: theme.recording
    Accessible.ignored: true
    SequentialAnimation on opacity {
        running: dot.visible && dot.Window.window !== null && dot.Window.window.visible
        loops: Animation.Infinite
        NumberAnimation { to: 0.35; duration: 700; easing.type: Easing.InOutQuad }
        NumberAnimation { to: 1.0; duration: 700; easing.type: Easing.InOutQuad }
    }
}
