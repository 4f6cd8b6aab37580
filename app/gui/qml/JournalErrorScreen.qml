// Shown instead of the tabs when the journal cannot be opened: what is
// wrong and where the file is. It offers nothing that could write to the
// file; the user fixes or moves it and starts Lumeo again.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Rectangle {
    objectName: "journalErrorScreen"
    color: Theme.background
    Accessible.role: Accessible.AlertMessage
    Accessible.name: L10n.tr("The journal cannot be opened")

    Card {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 560)
        height: column.implicitHeight + 48
        ColumnLayout {
            id: column
            anchors.fill: parent
            anchors.margins: 24
            spacing: 12
            Icon { name: "lock"; color: Theme.danger; size: 36 }
            Text {
                Layout.fillWidth: true
                text: L10n.tr("The journal cannot be opened")
                color: Theme.text
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
                wrapMode: Text.Wrap
            }
            Text {
                objectName: "journalErrorText"
                Layout.fillWidth: true
                text: Shell.launchError !== "" ? Shell.launchError : Shell.journalError
                color: Theme.text
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontBase
            }
            Text {
                Layout.fillWidth: true
                text: L10n.format("Lumeo has left the file %@ as it is. Move it away or restore it from a backup, then start Lumeo again.", [Shell.storePath])
                color: Theme.textSecondary
                wrapMode: Text.WrapAnywhere
                font.pointSize: Theme.fontCaption
            }
            Button {
                text: L10n.tr("Quit")
                Layout.alignment: Qt.AlignRight
                onClicked: Qt.quit()
            }
        }
    }
}
