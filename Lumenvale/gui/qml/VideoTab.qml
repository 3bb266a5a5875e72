import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    spacing: 12

    SettingRow {
        label: "Frame rate:"
        ComboBox {
            Accessible.name: "Frame rate"
            model: settings.frameRates
            displayText: currentText + " fps"
            currentIndex: settings.frameRates.indexOf(settings.fps)
            onActivated: (index) => settings.fps = settings.frameRates[index]
        }
    }
    SettingRow {
        label: "Video format:"
        ComboBox {
            Accessible.name: "Video format"
            model: settings.codecs
            textRole: "title"
            valueRole: "value"
            currentIndex: settings.codecs.findIndex(entry => entry.value === settings.codec)
            onActivated: settings.codec = currentValue
        }
    }
    SettingRow {
        label: "Pointer:"
        ColumnLayout {
            spacing: 4
            CheckBox {
                Accessible.onPressAction: { toggle(); toggled() }
                Accessible.onToggleAction: { toggle(); toggled() }
                text: "Show the pointer"
                checked: settings.showsPointer
                onToggled: settings.showsPointer = checked
                Accessible.name: text
            }
            CheckBox {
                // Off for good where the desktop shows no clicks: also for assistive tools.
                Accessible.onPressAction: if (enabled) { toggle(); toggled() }
                Accessible.onToggleAction: if (enabled) { toggle(); toggled() }
                text: "Show clicks"
                checked: settings.showsClicks
                enabled: settings.clicksSeen
                onToggled: settings.showsClicks = checked
                Accessible.name: text
                Accessible.description: enabled ? "" : clicksUnseen.text
            }
            Label {
                id: clicksUnseen
                visible: !settings.clicksSeen
                text: "Wayland doesn’t let applications see clicks in other windows."
                color: theme.secondaryText
                wrapMode: Text.WordWrap
                Layout.maximumWidth: 320
                Accessible.name: text
            }
        }
    }
    SettingRow {
        label: "Countdown:"
        CheckBox {
            Accessible.onPressAction: { toggle(); toggled() }
            Accessible.onToggleAction: { toggle(); toggled() }
            text: "Count down 3, 2, 1 before recording"
            checked: settings.countdown
            onToggled: settings.countdown = checked
            Accessible.name: text
        }
    }
    SettingRow {
        label: "Camera:"
        CheckBox {
            Accessible.onPressAction: { toggle(); toggled() }
            Accessible.onToggleAction: { toggle(); toggled() }
            text: "Show the camera in a bubble"
            checked: settings.camera
            onToggled: settings.camera = checked
            Accessible.name: text
        }
    }
    SettingRow {
        label: "Bubble size:"
        enabled: settings.camera
        Slider {
            Accessible.name: "Bubble size"
            from: settings.bubbleMinimum
            to: settings.bubbleMaximum
            stepSize: 10
            value: settings.bubbleDiameter
            onMoved: settings.bubbleDiameter = value
            Layout.fillWidth: true
        }
        Label {
            text: Math.round(settings.bubbleDiameter) + " pt"
            color: theme.secondaryText
        }
    }
}
