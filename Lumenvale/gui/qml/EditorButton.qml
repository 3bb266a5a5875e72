import QtQuick
import QtQuick.Controls

// A button of the editor window. It never takes the keyboard focus, so Space and the
// arrows always reach the editor's shortcuts; assistive technology presses it through
// its accessible action (which Qt Quick Controls 6.4 list but do not carry out).
Button {
    id: button
    property string hint
    // What assistive technology calls it, when its face shows a glyph.
    property string accessibleName: text
    focusPolicy: Qt.NoFocus
    hoverEnabled: true
    flat: !highlighted
    Accessible.role: Accessible.Button
    Accessible.name: accessibleName
    Accessible.description: hint
    Accessible.onPressAction: clicked()
    ToolTip.visible: hint !== "" && hovered
    ToolTip.text: hint
    ToolTip.delay: 600
}
