// A colour picker drawn from plain gradients (so it looks the same with the
// software renderer): hue across and saturation down a field, brightness
// on a slider beneath. `color` shows a colour; `picked` reports the user's.
// The arrow keys move the mark in the field.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

ColumnLayout {
    id: picker
    property color color: "red"
    signal picked(color picked)
    spacing: 10

    property real hue: 0
    property real saturation: 1
    property real brightness: 1

    onColorChanged: {
        // A grey has no hue: keep the one the mark is on.
        if (color.hsvHue >= 0)
            hue = color.hsvHue
        saturation = color.hsvSaturation
        brightness = color.hsvValue
    }
    function choose(h, s, v) {
        hue = Math.max(0, Math.min(1, h))
        saturation = Math.max(0, Math.min(1, s))
        brightness = Math.max(0, Math.min(1, v))
        picked(Qt.hsva(hue, saturation, brightness, 1))
    }

    Rectangle {
        id: field
        objectName: "colorField"
        Layout.fillWidth: true
        Layout.preferredHeight: 132
        radius: 10
        activeFocusOnTab: true
        border.width: activeFocus ? 2 : 0
        border.color: Theme.focus
        Accessible.role: Accessible.ColorChooser
        Accessible.name: L10n.tr("Color")
        gradient: Gradient {
            orientation: Gradient.Horizontal
            GradientStop { position: 0 / 6; color: "#ff0000" }
            GradientStop { position: 1 / 6; color: "#ffff00" }
            GradientStop { position: 2 / 6; color: "#00ff00" }
            GradientStop { position: 3 / 6; color: "#00ffff" }
            GradientStop { position: 4 / 6; color: "#0000ff" }
            GradientStop { position: 5 / 6; color: "#ff00ff" }
            GradientStop { position: 6 / 6; color: "#ff0000" }
        }
        // Less saturation downwards, then the brightness over all of it.
        Rectangle {
            anchors.fill: parent
            radius: field.radius
            gradient: Gradient {
                GradientStop { position: 0; color: "#00ffffff" }
                GradientStop { position: 1; color: "#ffffffff" }
            }
        }
        Rectangle {
            anchors.fill: parent
            radius: field.radius
            color: "black"
            opacity: 1 - picker.brightness
        }
        Rectangle {
            objectName: "colorMark"
            width: 18
            height: 18
            radius: 9
            x: picker.hue * (field.width - 1) - width / 2
            y: (1 - picker.saturation) * (field.height - 1) - height / 2
            color: Qt.hsva(picker.hue, picker.saturation, picker.brightness, 1)
            border.width: 3
            border.color: "white"
            Rectangle {
                anchors.fill: parent
                anchors.margins: -1
                radius: width / 2
                color: "transparent"
                border.color: Qt.rgba(0, 0, 0, 0.5)
            }
        }
        MouseArea {
            anchors.fill: parent
            function take(mouse) {
                field.forceActiveFocus()
                picker.choose(mouse.x / Math.max(1, field.width - 1), 1 - mouse.y / Math.max(1, field.height - 1),
                              picker.brightness)
            }
            onPressed: function (mouse) { take(mouse) }
            onPositionChanged: function (mouse) { if (pressed) take(mouse) }
        }
        Keys.onLeftPressed: picker.choose(picker.hue - 0.02, picker.saturation, picker.brightness)
        Keys.onRightPressed: picker.choose(picker.hue + 0.02, picker.saturation, picker.brightness)
        Keys.onUpPressed: picker.choose(picker.hue, picker.saturation + 0.05, picker.brightness)
        Keys.onDownPressed: picker.choose(picker.hue, picker.saturation - 0.05, picker.brightness)
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 10
        Text {
            text: L10n.tr("Brightness")
            color: Theme.textSecondary
            font.pointSize: Theme.fontCaption
        }
        Slider {
            id: brightnessSlider
            objectName: "brightnessSlider"
            Layout.fillWidth: true
            from: 0
            to: 1
            value: picker.brightness
            Accessible.name: L10n.tr("Brightness")
            onMoved: picker.choose(picker.hue, picker.saturation, value)
            background: Rectangle {
                x: brightnessSlider.leftPadding
                y: brightnessSlider.topPadding + brightnessSlider.availableHeight / 2 - height / 2
                width: brightnessSlider.availableWidth
                height: 8
                radius: 4
                border.width: brightnessSlider.visualFocus ? 2 : 0
                border.color: Theme.focus
                gradient: Gradient {
                    orientation: Gradient.Horizontal
                    GradientStop { position: 0; color: "black" }
                    GradientStop { position: 1; color: Qt.hsva(picker.hue, picker.saturation, 1, 1) }
                }
            }
            handle: Rectangle {
                x: brightnessSlider.leftPadding + brightnessSlider.visualPosition * (brightnessSlider.availableWidth - width)
                y: brightnessSlider.topPadding + brightnessSlider.availableHeight / 2 - height / 2
                width: 20
                height: 20
                radius: 10
                color: Qt.hsva(picker.hue, picker.saturation, picker.brightness, 1)
                border.width: 3
                border.color: "white"
            }
        }
    }
}
