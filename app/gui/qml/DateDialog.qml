// The date and time of a record: day, month, year, hour and minute, never
// after now (the controller says the latest moment).
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: dialog
    objectName: "dateDialog"
    modal: true
    closePolicy: Popup.CloseOnEscape
    anchors.centerIn: parent
    width: Math.min(parent ? parent.width - 32 : 420, 420)
    padding: 20
    property date current: Editor.pickerDate

    function picked() {
        return new Date(year.value, month.value - 1, day.value, hour.value, minute.value)
    }
    onAboutToShow: {
        var d = Editor.pickerDate
        year.value = d.getFullYear()
        month.value = d.getMonth() + 1
        day.value = d.getDate()
        hour.value = d.getHours()
        minute.value = d.getMinutes()
    }
    onClosed: if (Editor.timePickerVisible) Editor.pickerCancel()

    background: Card {}
    contentItem: ColumnLayout {
        spacing: 10
        Text {
            text: L10n.tr("Date")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }
        GridLayout {
            columns: 3
            columnSpacing: 8
            Text { text: L10n.tr("Day"); color: Theme.textSecondary }
            Text { text: L10n.tr("Month"); color: Theme.textSecondary }
            Text { text: L10n.tr("Year"); color: Theme.textSecondary }
            SpinBox { id: day; objectName: "dateDay"; from: 1; to: 31; editable: true; Accessible.name: L10n.tr("Day")
                      onValueModified: Editor.pickerChanged(dialog.picked()) }
            SpinBox { id: month; objectName: "dateMonth"; from: 1; to: 12; editable: true; Accessible.name: L10n.tr("Month")
                      onValueModified: Editor.pickerChanged(dialog.picked()) }
            SpinBox { id: year; objectName: "dateYear"; from: 1970; to: 2200; editable: true; Accessible.name: L10n.tr("Year")
                      textFromValue: function (v) { return "" + v }
                      onValueModified: Editor.pickerChanged(dialog.picked()) }
            Text { text: L10n.tr("Hour"); color: Theme.textSecondary }
            Text { text: L10n.tr("Minute"); color: Theme.textSecondary }
            Item { width: 1; height: 1 }
            SpinBox { id: hour; objectName: "dateHour"; from: 0; to: 23; editable: true; Accessible.name: L10n.tr("Hour")
                      onValueModified: Editor.pickerChanged(dialog.picked()) }
            SpinBox { id: minute; objectName: "dateMinute"; from: 0; to: 59; editable: true; Accessible.name: L10n.tr("Minute")
                      onValueModified: Editor.pickerChanged(dialog.picked()) }
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            Button { objectName: "dateCancel"; text: L10n.tr("Cancel"); onClicked: Editor.pickerCancel() }
            Button { objectName: "dateDone"; text: L10n.tr("Done"); onClicked: Editor.pickerDone(dialog.picked()) }
        }
    }
}
