// One tab of the navigation: an icon over a label in the narrow layout, an
// icon beside a label in the wide layout's rail.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

AbstractButton {
    id: button
    property string iconName
    property bool selected: false
    property bool rail: false
    focusPolicy: Qt.StrongFocus
    Accessible.role: Accessible.PageTab
    Accessible.name: text
    Accessible.checked: selected
    implicitHeight: rail ? 48 : 60
    implicitWidth: rail ? 200 : 80
    opacity: enabled ? 1 : 0.38

    background: Rectangle {
        radius: button.rail ? 12 : 16
        anchors.fill: parent
        anchors.margins: button.rail ? 0 : 4
        color: button.selected ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, Theme.dark ? 0.22 : 0.12)
                               : (button.hovered ? Theme.surfaceAlt : "transparent")
        border.width: button.visualFocus ? 2 : 0
        border.color: Theme.focus
    }

    contentItem: Item {
        GridLayout {
            anchors.centerIn: button.rail ? undefined : parent
            anchors.verticalCenter: parent.verticalCenter
            anchors.left: button.rail ? parent.left : undefined
            anchors.leftMargin: button.rail ? 14 : 0
            columns: button.rail ? 2 : 1
            columnSpacing: 12
            rowSpacing: 2
            Icon {
                name: button.iconName
                color: button.selected ? Theme.accent : Theme.textSecondary
                Layout.alignment: Qt.AlignHCenter
            }
            Text {
                text: button.text
                color: button.selected ? Theme.accent : Theme.textSecondary
                font.pointSize: button.rail ? Theme.fontBase : Theme.fontCaption
                font.weight: button.selected ? Font.DemiBold : Font.Normal
                Layout.alignment: Qt.AlignHCenter
            }
        }
    }
}
