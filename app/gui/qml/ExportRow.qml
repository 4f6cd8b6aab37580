// One row of the export screen: an icon, a title and, for From and To, the
// day on the right.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

AbstractButton {
    id: row
    property string iconName
    property string title
    property string value
    implicitHeight: 52
    focusPolicy: Qt.StrongFocus
    Accessible.role: Accessible.Button
    Accessible.name: value !== "" ? title + " " + value : title
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    opacity: enabled ? 1 : 0.45
    background: Rectangle {
        radius: 10
        color: row.down ? Theme.separator : (row.hovered ? Theme.surfaceAlt : "transparent")
        border.width: row.visualFocus ? 2 : 0
        border.color: Theme.focus
    }
    contentItem: Item {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 14
            Icon { name: row.iconName; color: Theme.accent; size: 22 }
            Text {
                Layout.fillWidth: true
                text: row.title
                color: Theme.text
                font.pointSize: Theme.fontBase
            }
            Text {
                visible: row.value !== ""
                text: row.value
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
            }
        }
    }
}
