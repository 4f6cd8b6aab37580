// One chart card: the core's picture on the card's background, or its
// not-enough-data layer; the title with an information text, the period
// button, and on the trend card with enough data the button to the graph.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: root
    property var card
    property bool infoShown: false
    signal periodClicked()
    signal graphClicked()
    objectName: "summaryCard" + (card ? card.kind : "")
    Accessible.role: Accessible.Graphic
    Accessible.name: card ? card.title : ""

    ColumnLayout {
        anchors.fill: parent
        spacing: 8
        RowLayout {
            Layout.fillWidth: true
            Layout.preferredHeight: 40
            Text {
                Layout.fillWidth: true
                text: root.card ? root.card.title : ""
                color: Theme.text
                elide: Text.ElideRight
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
            }
            RoundButton {
                objectName: "summaryCardInfo" + (root.card ? root.card.kind : "")
                flat: true
                Accessible.name: L10n.tr("About this chart")
                contentItem: HistoryGlyph { name: "info"; color: root.infoShown ? Theme.accent : Theme.textSecondary }
                onClicked: root.infoShown = !root.infoShown
            }
            RoundButton {
                objectName: "summaryGraphButton"
                visible: root.card && root.card.hasGraph
                flat: true
                Accessible.name: L10n.tr("Graph")
                contentItem: HistoryGlyph { name: "graph"; color: Theme.accent }
                onClicked: root.graphClicked()
            }
        }
        Rectangle {
            Layout.fillWidth: true
            Layout.fillHeight: true
            radius: Theme.radius
            clip: true
            color: "#2a3d66"
            Image {
                objectName: "summaryChartImage" + (root.card ? root.card.kind : "")
                anchors.fill: parent
                visible: root.card && !root.card.notEnoughData
                source: root.card && !root.card.notEnoughData ? "image://lumeo/" + root.card.source : ""
                fillMode: Image.Stretch
                smooth: true
                cache: false
            }
            Text {
                anchors.centerIn: parent
                width: parent.width - 48
                visible: root.card && root.card.notEnoughData
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: L10n.tr("Not enough data")
                color: "white"
                font.pointSize: Theme.fontTitle
            }
            // The information layer over the chart.
            Rectangle {
                anchors.fill: parent
                visible: root.infoShown
                color: "#e6101420"
                Text {
                    anchors.fill: parent
                    anchors.margins: 16
                    text: root.card ? root.card.info : ""
                    color: "white"
                    wrapMode: Text.Wrap
                    font.pointSize: Theme.fontBase
                    verticalAlignment: Text.AlignVCenter
                }
            }
        }
    }
}
