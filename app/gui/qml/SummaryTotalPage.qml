// The averages and the charts: the period button, the three bars ("Total",
// "Last week", "Last month") and the trend, weekly and daily charts as
// cards, paged when narrow and side by side when wide.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Flickable {
    id: page
    objectName: "summaryTotalPage"
    property var summary
    property bool wide: false
    readonly property alias periodSheet: periodSheet
    contentHeight: column.implicitHeight + 32
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    readonly property real cardWidth: wide ? Math.floor((width - 32 - 2 * 16) / 3) : width - 32
    readonly property real cardHeight: Math.round(cardWidth * 2 / 3)

    // The charts are drawn by the core at the cards' size.
    onCardWidthChanged: if (summary && cardWidth > 0) summary.setChartSize(cardWidth, cardHeight)
    Component.onCompleted: if (summary && cardWidth > 0) summary.setChartSize(cardWidth, cardHeight)

    ColumnLayout {
        id: column
        x: 16
        y: 8
        width: page.width - 32
        spacing: 16

        // --- Period and averages -------------------------------------------
        Card {
            Layout.fillWidth: true
            Layout.preferredHeight: stats.implicitHeight + 32
            ColumnLayout {
                id: stats
                anchors.fill: parent
                anchors.margins: 16
                spacing: 12
                RowLayout {
                    Layout.fillWidth: true
                    HistoryButton {
                        objectName: "summaryPeriodButton"
                        text: page.summary ? page.summary.periodTitle : ""
                        Accessible.name: L10n.tr("Period") + ": " + text
                        onClicked: page.summary.openPeriodPicker()
                    }
                    Text {
                        objectName: "summaryRange"
                        Layout.fillWidth: true
                        horizontalAlignment: Text.AlignRight
                        text: page.summary ? page.summary.rangeText : ""
                        color: Theme.textSecondary
                        elide: Text.ElideLeft
                        font.pointSize: Theme.fontCaption
                    }
                }
                Repeater {
                    model: page.summary ? page.summary.statBars : []
                    RowLayout {
                        objectName: "summaryStat" + index
                        Layout.fillWidth: true
                        spacing: 12
                        Accessible.role: Accessible.StaticText
                        Accessible.name: modelData.title + ": " + modelData.text
                        Text {
                            Layout.preferredWidth: 96
                            text: modelData.title
                            color: Theme.text
                            font.pointSize: Theme.fontBase
                        }
                        Item {
                            Layout.fillWidth: true
                            Layout.preferredHeight: 26
                            Rectangle {
                                anchors.fill: parent
                                radius: 13
                                color: Theme.surfaceAlt
                            }
                            Rectangle {
                                visible: !modelData.hidden
                                width: Math.max(height, parent.width * Math.min(1, modelData.fraction))
                                height: parent.height
                                radius: 13
                                color: modelData.color
                            }
                            Text {
                                anchors.verticalCenter: parent.verticalCenter
                                x: modelData.hidden ? 12 : Math.max(26, parent.width * Math.min(1, modelData.fraction)) - width - 10
                                text: modelData.text
                                color: modelData.hidden ? Theme.textSecondary : Theme.readableOn(modelData.color)
                                font.pointSize: Theme.fontCaption
                                font.weight: modelData.hidden ? Font.Normal : Font.DemiBold
                            }
                        }
                    }
                }
            }
        }

        // --- Charts ------------------------------------------------------------
        ListView {
            id: charts
            objectName: "summaryCharts"
            Layout.fillWidth: true
            Layout.preferredHeight: page.cardHeight + 56
            orientation: ListView.Horizontal
            snapMode: page.wide ? ListView.NoSnap : ListView.SnapOneItem
            highlightRangeMode: page.wide ? ListView.NoHighlightRange : ListView.StrictlyEnforceRange
            interactive: !page.wide
            spacing: 16
            clip: true
            model: page.summary ? page.summary.cards : []
            delegate: SummaryChartCard {
                width: page.cardWidth
                height: page.cardHeight + 56
                card: modelData
                onPeriodClicked: page.summary.openPeriodPicker()
                onGraphClicked: page.summary.openGraph()
            }
        }
        // Three dots: which card shows.
        Row {
            Layout.alignment: Qt.AlignHCenter
            visible: !page.wide
            spacing: 8
            Repeater {
                model: 3
                Rectangle {
                    width: 8
                    height: 8
                    radius: 4
                    color: charts.currentIndex === index ? Theme.accent : Theme.separator
                }
            }
        }
    }

    SummaryPeriodSheet {
        id: periodSheet
        summary: page.summary
    }
}
