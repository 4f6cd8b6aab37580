// One side's tags: the photos of that side's records in a carousel (the
// newest in the centre; a tap on the centre opens the gallery, on another
// brings it to the centre) and the tags ranked by the core, each a row in
// its average's colour with "#Name 7.5"; a row opens the tag's records.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: page
    objectName: negative ? "summaryNegativePage" : "summaryPositivePage"
    property var summary
    property bool negative: false
    property bool wide: false
    readonly property var tags: summary ? (negative ? summary.negativeTags : summary.positiveTags) : null
    readonly property var photos: summary ? (negative ? summary.negativePhotos : summary.positivePhotos) : null
    readonly property int carouselIndex: summary ? (negative ? summary.negativeCarouselIndex : summary.positiveCarouselIndex) : -1
    readonly property string emptyTags: summary ? (negative ? summary.negativeEmptyTags : summary.positiveEmptyTags) : ""
    readonly property string emptyPhotos: summary ? (negative ? summary.negativeEmptyPhotos : summary.positiveEmptyPhotos) : ""

    GridLayout {
        anchors.fill: parent
        anchors.margins: 16
        columns: page.wide ? 2 : 1
        columnSpacing: 16
        rowSpacing: 16

        // --- Photos ---------------------------------------------------------------
        Card {
            Layout.fillWidth: true
            Layout.fillHeight: page.wide
            Layout.preferredHeight: page.wide ? -1 : 170
            clip: true
            Text {
                anchors.centerIn: parent
                visible: page.emptyPhotos !== ""
                horizontalAlignment: Text.AlignHCenter
                text: page.emptyPhotos
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
            }
            ListView {
                id: carousel
                objectName: page.negative ? "summaryNegativeCarousel" : "summaryPositiveCarousel"
                anchors.fill: parent
                anchors.margins: 12
                visible: page.emptyPhotos === ""
                orientation: ListView.Horizontal
                spacing: 10
                model: page.photos
                currentIndex: page.carouselIndex
                highlightRangeMode: ListView.StrictlyEnforceRange
                preferredHighlightBegin: (width - itemSize) / 2
                preferredHighlightEnd: (width + itemSize) / 2
                highlightMoveDuration: 250
                readonly property real itemSize: Math.min(height, 160)
                delegate: Item {
                    required property int index
                    required property url thumb
                    required property int level
                    required property color levelColor
                    width: carousel.itemSize
                    height: carousel.itemSize
                    // Fades with its distance from the centre, to 0.3 one item away.
                    opacity: Math.max(0.3, 1 - 0.7 * Math.min(1, Math.abs(index - carousel.currentIndex)))
                    Rectangle {
                        anchors.fill: parent
                        radius: 12
                        color: levelColor
                    }
                    Image {
                        anchors.fill: parent
                        anchors.margins: 3
                        source: thumb
                        fillMode: Image.PreserveAspectCrop
                        asynchronous: true
                        sourceSize: Qt.size(carousel.itemSize * 2, carousel.itemSize * 2)
                    }
                    Rectangle {
                        anchors.right: parent.right
                        anchors.bottom: parent.bottom
                        anchors.margins: 8
                        width: 26
                        height: 26
                        radius: 13
                        color: levelColor
                        Text {
                            anchors.centerIn: parent
                            text: level
                            color: Theme.readableOn(levelColor)
                            font.pointSize: Theme.fontCaption
                            font.weight: Font.DemiBold
                        }
                    }
                    MouseArea {
                        anchors.fill: parent
                        onClicked: page.summary.tapPhoto(page.negative, index)
                    }
                    Accessible.role: Accessible.Button
                    Accessible.name: L10n.tr("Photo") + ", " + level
                }
            }
        }

        // --- Tags -------------------------------------------------------------------
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Text {
                anchors.centerIn: parent
                visible: page.emptyTags !== ""
                horizontalAlignment: Text.AlignHCenter
                text: page.emptyTags
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
            }
            ListView {
                id: list
                objectName: page.negative ? "summaryNegativeTags" : "summaryPositiveTags"
                anchors.fill: parent
                clip: true
                spacing: 8
                model: page.tags
                boundsBehavior: Flickable.StopAtBounds
                delegate: AbstractButton {
                    required property int index
                    required property string name
                    required property string label
                    required property string labelMarkup
                    required property string averageText
                    required property int frequency
                    required property color tagColor
                    objectName: "summaryTag_" + name
                    width: ListView.view.width
                    height: 48
                    focusPolicy: Qt.StrongFocus
                    Accessible.role: Accessible.Button
                    Accessible.name: label + ", " + frequency
                    onClicked: page.summary.openTag(page.negative, index)
                    background: Rectangle {
                        radius: 12
                        color: tagColor
                        border.width: parent.visualFocus ? 2 : 0
                        border.color: Theme.focus
                    }
                    contentItem: RowLayout {
                        spacing: 8
                        Text {
                            Layout.leftMargin: 16
                            Layout.fillWidth: true
                            text: labelMarkup
                            textFormat: Text.StyledText
                            color: Theme.readableOn(tagColor)
                            elide: Text.ElideRight
                            font.pointSize: Theme.fontBase
                        }
                        Text {
                            text: frequency
                            color: Theme.readableOn(tagColor)
                            opacity: 0.75
                            font.pointSize: Theme.fontCaption
                        }
                        HistoryGlyph {
                            Layout.rightMargin: 10
                            name: "chevron"
                            size: 18
                            color: Theme.readableOn(tagColor)
                        }
                    }
                }
            }
        }
    }
}
