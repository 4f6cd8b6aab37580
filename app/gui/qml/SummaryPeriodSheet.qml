// The period picker: the six periods; the choice is stored and the page
// recomputed by the core.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Templates as T
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: sheet
    objectName: "summaryPeriodSheet"
    property var summary
    readonly property alias rows: rows
    visible: summary ? summary.pickerVisible : false
    modal: true
    focus: true
    parent: T.Overlay.overlay
    anchors.centerIn: T.Overlay.overlay
    width: Math.min(340, parent ? parent.width - 32 : 340)
    padding: 12
    // Leaving without a choice keeps the period.
    onClosed: if (summary && summary.pickerVisible) summary.choosePeriod(summary.period)

    background: Rectangle {
        color: Theme.surface
        radius: Theme.radius
        border.color: Theme.separator
    }
    contentItem: ColumnLayout {
        spacing: 2
        Text {
            Layout.margins: 8
            text: L10n.tr("Period")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
        }
        Repeater {
            id: rows
            model: sheet.summary ? sheet.summary.periodTitles : []
            ItemDelegate {
                objectName: "summaryPeriod" + index
                Layout.fillWidth: true
                text: modelData
                highlighted: sheet.summary && sheet.summary.period === index
                focus: highlighted
                onClicked: sheet.summary.choosePeriod(index)
            }
        }
    }
}
