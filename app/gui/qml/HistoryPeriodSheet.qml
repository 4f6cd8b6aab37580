// The period sheet of the list: From and To as dates. Opening it makes the
// filter the whole journal; each bound typed obeys the core's rules (From
// never after To, To to the end of its day); Done applies, Clear removes.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Templates as T
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: sheet
    objectName: "historyPeriodSheet"
    property var history
    modal: true
    focus: true
    anchors.centerIn: T.Overlay.overlay
    width: Math.min(380, parent ? parent.width - 32 : 380)
    padding: 20
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside

    onOpened: {
        fromField.text = Qt.formatDate(history.filterFrom, "yyyy-MM-dd")
        toField.text = Qt.formatDate(history.filterTo, "yyyy-MM-dd")
        fromField.forceActiveFocus()
    }

    function parse(text) {
        var m = /^\s*(\d{4})-(\d{1,2})-(\d{1,2})\s*$/.exec(text)
        if (!m)
            return null
        var d = new Date(Number(m[1]), Number(m[2]) - 1, Number(m[3]))
        return d.getMonth() === Number(m[2]) - 1 ? d : null
    }
    // A bound is taken when it is a real date; the core keeps the two in
    // order and shows what it made of them.
    function take(field, from) {
        var d = parse(field.text)
        if (!d)
            return false
        if (from)
            history.pickFrom(d)
        else
            history.pickTo(d)
        fromField.text = Qt.formatDate(history.filterFrom, "yyyy-MM-dd")
        toField.text = Qt.formatDate(history.filterTo, "yyyy-MM-dd")
        return true
    }

    background: Rectangle {
        color: Theme.surface
        radius: Theme.radius
        border.color: Theme.separator
    }

    contentItem: ColumnLayout {
        spacing: 12
        Text {
            text: L10n.tr("Period")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
        }
        GridLayout {
            columns: 2
            columnSpacing: 12
            rowSpacing: 8
            Layout.fillWidth: true
            Text { text: L10n.tr("From"); color: Theme.textSecondary; font.pointSize: Theme.fontBase }
            TextField {
                id: fromField
                objectName: "historyPeriodFrom"
                Layout.fillWidth: true
                placeholderText: "YYYY-MM-DD"
                inputMethodHints: Qt.ImhDate
                Accessible.name: L10n.tr("From")
                color: Theme.text
                onEditingFinished: sheet.take(fromField, true)
            }
            Text { text: L10n.tr("To"); color: Theme.textSecondary; font.pointSize: Theme.fontBase }
            TextField {
                id: toField
                objectName: "historyPeriodTo"
                Layout.fillWidth: true
                placeholderText: "YYYY-MM-DD"
                inputMethodHints: Qt.ImhDate
                Accessible.name: L10n.tr("To")
                color: Theme.text
                onEditingFinished: sheet.take(toField, false)
            }
        }
        Text {
            Layout.fillWidth: true
            text: sheet.history ? sheet.history.fromLabel + " – " + sheet.history.toLabel : ""
            color: Theme.textSecondary
            wrapMode: Text.Wrap
            font.pointSize: Theme.fontCaption
        }
        RowLayout {
            Layout.fillWidth: true
            HistoryButton {
                objectName: "historyPeriodClearButton"
                text: L10n.tr("Clear")
                enabled: sheet.history && sheet.history.filtered
                onClicked: {
                    sheet.history.clearPeriodFilter()
                    sheet.close()
                }
            }
            Item { Layout.fillWidth: true }
            HistoryButton {
                objectName: "historyPeriodDone"
                text: L10n.tr("Done")
                prominent: true
                onClicked: {
                    sheet.take(fromField, true)
                    sheet.take(toField, false)
                    sheet.history.applyPeriodFilter()
                    sheet.close()
                }
            }
        }
    }
}
