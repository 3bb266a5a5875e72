import QtQuick
import QtQuick.Window

// A window the user cannot resize that takes the size of its content, growing or
// shrinking with it (fitWidth × fitHeight). The limits open before the size changes, so
// a window never stays stuck at an earlier size.
Window {
    id: fixed
    property real fitWidth: 400
    property real fitHeight: 300

    function fit() {
        const w = Math.ceil(fitWidth), h = Math.ceil(fitHeight)
        minimumWidth = 0; minimumHeight = 0
        maximumWidth = 16777215; maximumHeight = 16777215
        width = w; height = h
        minimumWidth = w; maximumWidth = w
        minimumHeight = h; maximumHeight = h
    }
    onFitWidthChanged: Qt.callLater(fit)
    onFitHeightChanged: Qt.callLater(fit)
    Component.onCompleted: fit()
}
