// The export screen, from the settings menu: the range (From, To), the
// three exports, their busy indicator with progress and Cancel, and what
// can be done with a finished report or table (save it, open it, mail it).
// Everything it shows is the Export singleton's.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "exportScreen"
    property string className
    property bool wide: false
    property string shareError: ""

    // What a chosen folder or file does; the dialogs call these, and so may a test.
    function photosFolderChosen(url) { Export.exportPhotos(url) }
    function saveChosen(url) { screen.shareError = Export.saveTo(url) }
    function close() { if (!Export.busy) Shell.closeScreen(screen.className) }

    Component.onCompleted: {
        Export.appear()
        rows.forceActiveFocus()
    }
    Keys.onEscapePressed: Export.busy ? Export.cancel() : screen.close()

    Rectangle {
        anchors.fill: parent
        color: screen.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent; onClicked: if (screen.wide) screen.close() }
    }

    Rectangle {
        id: panel
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
                    objectName: "exportBack"
                    flat: true
                    enabled: !Export.busy
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: screen.close()
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Export")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            // From and To.
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: range.implicitHeight + 8
                ColumnLayout {
                    id: range
                    anchors.fill: parent
                    anchors.margins: 4
                    spacing: 0
                    ExportRow {
                        objectName: "exportRow_from"
                        Layout.fillWidth: true
                        iconName: "date"
                        title: Export.rows[0]
                        value: Export.fromText
                        enabled: Export.ready && !Export.busy
                        onClicked: dateDialog.open_("from")
                    }
                    ExportRow {
                        objectName: "exportRow_to"
                        Layout.fillWidth: true
                        iconName: "date"
                        title: Export.rows[1]
                        value: Export.toText
                        enabled: Export.ready && !Export.busy
                        onClicked: dateDialog.open_("to")
                    }
                }
            }

            // The three exports.
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: actions.implicitHeight + 8
                ColumnLayout {
                    id: actions
                    anchors.fill: parent
                    anchors.margins: 4
                    spacing: 0
                    ExportRow {
                        objectName: "exportPdf"
                        Layout.fillWidth: true
                        iconName: "export"
                        title: Export.rows[3]
                        enabled: Export.ready && !Export.busy
                        onClicked: Export.exportPdf()
                    }
                    ExportRow {
                        objectName: "exportCsv"
                        Layout.fillWidth: true
                        iconName: "history"
                        title: Export.rows[4]
                        enabled: Export.ready && !Export.busy
                        onClicked: Export.exportCsv()
                    }
                    ExportRow {
                        objectName: "exportPhotos"
                        Layout.fillWidth: true
                        iconName: "photo"
                        title: Export.rows[5]
                        enabled: Export.ready && !Export.busy
                        onClicked: folderDialog.open()
                    }
                }
            }

            // Busy: the indicator's text, the progress and Cancel.
            Card {
                objectName: "exportBusy"
                Layout.fillWidth: true
                Layout.preferredHeight: busyColumn.implicitHeight + 24
                visible: Export.indicator !== "" || Export.outcome !== ""
                ColumnLayout {
                    id: busyColumn
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 8
                    RowLayout {
                        Layout.fillWidth: true
                        spacing: 10
                        BusyIndicator {
                            running: Export.indicator !== ""
                            visible: running
                            implicitWidth: 28
                            implicitHeight: 28
                        }
                        Icon {
                            visible: Export.indicator === "" && Export.outcome !== ""
                            name: Export.outcome === "ok" ? "check" : "close"
                            color: Export.outcome === "ok" ? Theme.accent : Theme.danger
                        }
                        Text {
                            objectName: "exportIndicator"
                            Layout.fillWidth: true
                            text: Export.indicator !== "" ? Export.indicator : L10n.tr("Completed")
                            color: Theme.text
                            font.pointSize: Theme.fontBase
                            Accessible.role: Accessible.StaticText
                        }
                        ChipButton {
                            objectName: "exportCancel"
                            visible: Export.cancellable && Export.indicator !== ""
                            text: L10n.tr("Cancel")
                            onClicked: Export.cancel()
                        }
                    }
                    ProgressBar {
                        objectName: "exportProgress"
                        Layout.fillWidth: true
                        visible: Export.indicator !== ""
                        from: 0
                        to: 1
                        value: Export.progress
                    }
                }
            }

            // A finished report or table: save, open, mail.
            Card {
                objectName: "exportShare"
                Layout.fillWidth: true
                Layout.preferredHeight: shareColumn.implicitHeight + 24
                visible: Export.file !== "" && Export.indicator === ""
                ColumnLayout {
                    id: shareColumn
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 10
                    Text {
                        objectName: "exportFileName"
                        Layout.fillWidth: true
                        text: Export.fileName
                        color: Theme.text
                        font.pointSize: Theme.fontBase
                        font.weight: Font.DemiBold
                        elide: Text.ElideMiddle
                    }
                    Flow {
                        Layout.fillWidth: true
                        spacing: 8
                        ChipButton {
                            objectName: "exportSaveAs"
                            text: L10n.tr("Save As…")
                            iconName: "export"
                            onClicked: saveDialog.open()
                        }
                        ChipButton {
                            objectName: "exportOpen"
                            text: L10n.tr("Open")
                            iconName: "photo"
                            onClicked: screen.shareError = Export.openFile()
                        }
                        ChipButton {
                            objectName: "exportEmail"
                            text: L10n.tr("E-mail")
                            iconName: "edit"
                            onClicked: screen.shareError = Export.emailFile()
                        }
                    }
                    Text {
                        objectName: "exportShareError"
                        Layout.fillWidth: true
                        visible: screen.shareError !== ""
                        text: screen.shareError
                        color: Theme.danger
                        wrapMode: Text.Wrap
                        font.pointSize: Theme.fontCaption
                    }
                }
            }

            Text {
                objectName: "exportPhotoSummary"
                Layout.fillWidth: true
                visible: text !== ""
                text: Export.photoSummary
                color: Theme.textSecondary
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontBase
            }

            Item { Layout.fillHeight: true }
        }
    }

    ExportDateDialog { id: dateDialog }

    FolderDialog {
        id: folderDialog
        title: L10n.tr("Export photos")
        onAccepted: screen.photosFolderChosen(selectedFolder)
    }
    FileDialog {
        id: saveDialog
        fileMode: FileDialog.SaveFile
        currentFile: "file:///" + Export.fileName
        nameFilters: Export.fileName.endsWith(".pdf") ? [L10n.tr("PDF documents") + " (*.pdf)"]
                                                      : [L10n.tr("CSV tables") + " (*.csv)"]
        onAccepted: screen.saveChosen(selectedFile)
    }
}
