// A small rounded button with an optional icon: date, place, tags, offers.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

AbstractButton {
    id: chip
    property string iconName
    property bool subtle: false
    focusPolicy: Qt.StrongFocus
    Accessible.role: Accessible.Button
    Accessible.name: text
    implicitHeight: 36
    implicitWidth: row.implicitWidth + 24
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    background: Rectangle {
        radius: height / 2
        color: chip.checked ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, Theme.dark ? 0.25 : 0.14)
                            : (chip.down ? Theme.separator : (chip.hovered ? Theme.surfaceAlt : Theme.surface))
        border.width: chip.visualFocus ? 2 : 1
        border.color: chip.visualFocus ? Theme.focus : (chip.checked ? Theme.accent : Theme.separator)
    }
    contentItem: Item {
        RowLayout {
            id: row
            anchors.centerIn: parent
            spacing: 6
            Icon {
                visible: chip.iconName !== ""
                name: chip.iconName
                size: 18
                color: Theme.textSecondary
            }
            Text {
                text: chip.text
                color: chip.subtle ? Theme.textSecondary : Theme.text
                font.pointSize: Theme.fontBase
            }
        }
    }
}
