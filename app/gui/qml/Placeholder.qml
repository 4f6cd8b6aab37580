// A calm card that says what a screen will show.
import QtQuick
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: placeholder
    property string iconName
    property string title
    property string text
    Card {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 480)
        height: col.implicitHeight + 48
        ColumnLayout {
            id: col
            anchors.fill: parent
            anchors.margins: 24
            spacing: 10
            Rectangle {
                Layout.preferredWidth: 56
                Layout.preferredHeight: 56
                radius: 28
                color: Theme.surfaceAlt
                Icon { anchors.centerIn: parent; name: placeholder.iconName; color: Theme.accent; size: 28 }
            }
            Text {
                Layout.fillWidth: true
                text: placeholder.title
                color: Theme.text
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
            }
            Text {
                Layout.fillWidth: true
                text: placeholder.text
                color: Theme.textSecondary
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontBase
            }
        }
    }
}
