// A day for the export's From or To: day, month and year. The controller
// clamps what is picked (never after today, From never after To).
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: dialog
    objectName: "exportDateDialog"
    modal: true
    closePolicy: Popup.CloseOnEscape
    anchors.centerIn: parent
    width: Math.min(parent ? parent.width - 32 : 380, 380)
    padding: 20
    // "from" or "to"
    property string which: "from"

    function open_(whichEnd) {
        which = whichEnd
        var d = whichEnd === "from" ? Export.from : Export.to
        year.value = d.getFullYear()
        month.value = d.getMonth() + 1
        day.value = d.getDate()
        open()
    }
    function accept() {
        var picked = new Date(year.value, month.value - 1, Math.min(day.value, new Date(year.value, month.value, 0).getDate()), 12, 0)
        if (which === "from")
            Export.setFrom(picked)
        else
            Export.setTo(picked)
        close()
    }

    background: Card {}
    contentItem: ColumnLayout {
        spacing: 10
        Text {
            text: dialog.which === "from" ? L10n.tr("From") : L10n.tr("To")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }
        GridLayout {
            columns: 2
            columnSpacing: 12
            Text { text: L10n.tr("Day"); color: Theme.textSecondary; font.pointSize: Theme.fontBase }
            SpinBox { id: day; objectName: "exportDay"; from: 1; to: 31; editable: true; Layout.fillWidth: true }
            Text { text: L10n.tr("Month"); color: Theme.textSecondary; font.pointSize: Theme.fontBase }
            SpinBox { id: month; objectName: "exportMonth"; from: 1; to: 12; editable: true; Layout.fillWidth: true }
            Text { text: L10n.tr("Year"); color: Theme.textSecondary; font.pointSize: Theme.fontBase }
            SpinBox {
                id: year
                objectName: "exportYear"
                from: 1970; to: 9999; editable: true
                Layout.fillWidth: true
                textFromValue: function (value) { return String(value) }
            }
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            ChipButton { objectName: "exportDateCancel"; text: L10n.tr("Cancel"); onClicked: dialog.close() }
            ChipButton { objectName: "exportDateDone"; text: L10n.tr("Done"); checked: true; onClicked: dialog.accept() }
        }
    }
}
