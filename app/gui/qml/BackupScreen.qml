// The backup screen, from the settings menu: "Back up now" writes the
// journal's archive to a file the user chooses; "Restore from archive…"
// replaces the journal with a chosen archive after the core's question.
// Results and errors come as alerts; the work is the Backup singleton's.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "backupScreen"
    property string className
    property bool wide: false

    // What a chosen file does; the dialogs call these, and so may a test.
    function backupFileChosen(url) { Backup.backUpTo(url) }
    function archiveChosen(url) { Backup.restoreFrom(url) }
    function close() { if (!Backup.busy) Shell.closeScreen(screen.className) }

    Component.onCompleted: rows.forceActiveFocus()
    Keys.onEscapePressed: screen.close()

    Rectangle {
        anchors.fill: parent
        color: screen.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent; onClicked: if (screen.wide) screen.close() }
    }

    Rectangle {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.margins: screen.wide ? 32 : 0
        width: screen.wide ? Math.min(parent.width - 64, 560) : parent.width
        radius: screen.wide ? Theme.radius : 0
        color: Theme.background
        MouseArea { anchors.fill: parent }

        ColumnLayout {
            id: rows
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12
            focus: true

            RowLayout {
                Layout.fillWidth: true
                RoundButton {
                    objectName: "backupBack"
                    flat: true
                    enabled: !Backup.busy
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: screen.close()
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Backup")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: actions.implicitHeight + 8
                ColumnLayout {
                    id: actions
                    anchors.fill: parent
                    anchors.margins: 4
                    spacing: 0
                    ExportRow {
                        objectName: "backupNow"
                        Layout.fillWidth: true
                        iconName: "backup"
                        title: L10n.tr("Back up now")
                        enabled: !Backup.busy
                        onClicked: saveDialog.open()
                    }
                    ExportRow {
                        objectName: "backupRestore"
                        Layout.fillWidth: true
                        iconName: "sync"
                        title: L10n.tr("Restore from archive…")
                        enabled: !Backup.busy
                        onClicked: openDialog.open()
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                Layout.leftMargin: 8
                visible: Backup.busy || Backup.result !== ""
                spacing: 10
                BusyIndicator {
                    running: Backup.busy
                    visible: running
                    implicitWidth: 28
                    implicitHeight: 28
                }
                Icon { visible: !Backup.busy; name: "check"; color: Theme.accent }
                Text {
                    objectName: "backupResult"
                    Layout.fillWidth: true
                    text: Backup.result
                    color: Theme.text
                    font.pointSize: Theme.fontBase
                }
            }

            Text {
                Layout.fillWidth: true
                Layout.leftMargin: 8
                text: L10n.tr("A restore keeps the journal it replaces as before-restore.backup beside the journal's folder.")
                color: Theme.textSecondary
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontCaption
            }

            Item { Layout.fillHeight: true }
        }
    }

    FileDialog {
        id: saveDialog
        fileMode: FileDialog.SaveFile
        currentFile: "file:///" + Backup.suggestedName
        nameFilters: [L10n.tr("Lumeo archives") + " (*.backup)"]
        onAccepted: screen.backupFileChosen(selectedFile)
    }
    FileDialog {
        id: openDialog
        fileMode: FileDialog.OpenFile
        nameFilters: [L10n.tr("Lumeo archives") + " (*.backup *.backup1)", L10n.tr("All files") + " (*)"]
        onAccepted: screen.archiveChosen(selectedFile)
    }
}
