import QtQuick

// The translucent rounded background of the floating panels, with a hairline border.
Rectangle {
    color: Qt.rgba(0.11, 0.11, 0.12, 0.86)
    border.color: Qt.rgba(1, 1, 1, 0.18)
    border.width: 1
}
