// A screen of the core that this version of the desktop app does not show
// yet: says so and leads back.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Rectangle {
    id: screen
    property string className
    color: Qt.rgba(0, 0, 0, 0.35)
    Keys.onEscapePressed: Shell.closeScreen(className)
    MouseArea { anchors.fill: parent }
    Card {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 420)
        height: col.implicitHeight + 40
        ColumnLayout {
            id: col
            anchors.fill: parent
            anchors.margins: 20
            spacing: 12
            Text {
                Layout.fillWidth: true
                text: L10n.tr("This screen is not part of the desktop app yet.")
                color: Theme.text
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontBase
            }
            Button {
                objectName: "unavailableBack"
                Layout.alignment: Qt.AlignRight
                text: L10n.tr("Back")
                onClicked: Shell.closeScreen(screen.className)
            }
        }
    }
}
