import QtQuick

// The timeline's ruler: a tick every step (the first of 1, 2, 5 … 600 s at least
// 64 points apart) with its clock time beside it.
Canvas {
    id: ruler
    required property QtObject editor
    required property real duration // seconds of output
    required property real scale    // points per second
    height: 22
    Accessible.role: Accessible.StaticText
    Accessible.name: "Ruler"

    onDurationChanged: requestPaint()
    onScaleChanged: requestPaint()
    onWidthChanged: requestPaint()

    onPaint: {
        const context = getContext("2d")
        context.reset()
        if (duration < 0)
            return
        const step = editor.rulerStep(scale)
        context.fillStyle = theme.secondaryText
        context.font = "10px monospace"
        for (let t = 0; t <= duration + 1e-9; t += step) {
            const x = t * scale
            context.fillRect(x, height - 8, 1, 8)
            context.fillText(editor.clockText(t), x + 3, 12)
        }
    }
}
