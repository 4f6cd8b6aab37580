// The gallery: one photo a page, sideways. The core decides the current
// page from the offset, keeps only the pages near it, and hands the page
// shown back to the list when scrolling stops. A tap shows or hides the
// panel with the comment, the date and "Back".
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: page
    objectName: "galleryPage"
    property var gallery
    signal back()
    focus: true

    Component.onDestruction: if (gallery) gallery.close()
    Keys.onEscapePressed: page.back()
    Keys.onLeftPressed: showPage(gallery.currentIndex - 1)
    Keys.onRightPressed: showPage(gallery.currentIndex + 1)

    // A whole page at once (the keyboard): the list stands there and the
    // gallery hears it as a scroll that ended.
    function showPage(index) {
        if (!gallery || index < 0 || index >= gallery.count)
            return
        pages.positionViewAtIndex(index, ListView.Beginning)
        gallery.scrolled(index * pages.width)
        gallery.scrollEnded()
    }

    Rectangle { anchors.fill: parent; color: "black" }

    ListView {
        id: pages
        objectName: "galleryPages"
        anchors.fill: parent
        orientation: ListView.Horizontal
        snapMode: ListView.SnapOneItem
        boundsBehavior: Flickable.StopAtBounds
        interactive: page.gallery && page.gallery.scrollEnabled
        model: page.gallery
        cacheBuffer: 0
        // Until the list stands on the gallery's page, its offsets say nothing.
        property bool ready: false
        function place() {
            if (!page.gallery || width <= 0)
                return
            ready = false
            page.gallery.setPageWidth(width)
            positionViewAtIndex(page.gallery.currentIndex, ListView.Beginning)
            ready = true
        }
        Component.onCompleted: place()
        onWidthChanged: place()
        // The journal changed and the list was fetched again: back onto the
        // gallery's page (the same record, or its neighbour).
        Connections {
            target: page.gallery
            function onRecordsChanged() { pages.place() }
        }
        onContentXChanged: if (ready && moving) page.gallery.scrolled(contentX - originX)
        onMovementEnded: {
            page.gallery.scrolled(contentX - originX)
            page.gallery.scrollEnded()
        }

        delegate: Item {
            required property url photo
            required property bool ready
            width: ListView.view.width
            height: ListView.view.height
            Image {
                anchors.fill: parent
                anchors.margins: 8
                source: parent.ready ? parent.photo : ""
                fillMode: Image.PreserveAspectFit
                asynchronous: true
                Accessible.role: Accessible.Graphic
                Accessible.name: L10n.tr("Photo")
            }
            BusyIndicator {
                anchors.centerIn: parent
                running: !parent.ready
                visible: running
            }
            MouseArea {
                anchors.fill: parent
                onClicked: page.gallery.togglePanel()
            }
        }
    }

    // Every photo of the list was deleted (in another window or program).
    Text {
        objectName: "galleryEmpty"
        anchors.centerIn: parent
        width: parent.width - 48
        visible: page.gallery && page.gallery.count === 0
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        text: L10n.tr("No photos")
        color: "#d0d0d8"
        font.pointSize: Theme.fontBase
    }

    // The bottom panel.
    Rectangle {
        objectName: "galleryPanel"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: panel.implicitHeight + 32
        visible: page.gallery && !page.gallery.panelHidden
        color: "#cc101014"
        ColumnLayout {
            id: panel
            anchors.fill: parent
            anchors.margins: 16
            spacing: 8
            RowLayout {
                Layout.fillWidth: true
                HistoryButton {
                    objectName: "galleryBack"
                    text: page.gallery ? page.gallery.backTitle : ""
                    tone: "white"
                    onClicked: page.back()
                }
                Text {
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    text: page.gallery ? page.gallery.title : ""
                    color: "white"
                    font.pointSize: Theme.fontBase
                    font.weight: Font.DemiBold
                }
                HistoryButton {
                    objectName: "galleryShare"
                    text: L10n.tr("Share")
                    tone: "white"
                    onClicked: page.gallery.share()
                }
            }
            Item {
                Layout.fillWidth: true
                Layout.preferredHeight: comment.height
                readonly property var layout: page.gallery ? page.gallery.comment : null
                onWidthChanged: if (layout) layout.width = width
                Image {
                    id: comment
                    width: parent.layout ? parent.layout.width : 0
                    height: parent.layout ? parent.layout.height : 0
                    source: parent.layout && parent.layout.source !== "" ? "image://lumeo/" + parent.layout.source : ""
                    cache: false
                    Accessible.role: Accessible.StaticText
                    Accessible.name: parent.layout ? parent.layout.text : ""
                }
            }
            Text {
                objectName: "galleryDate"
                text: page.gallery ? page.gallery.dateText + (page.gallery.edited ? "  ·  " + L10n.tr("Edited") : "") : ""
                color: "#d0d0d8"
                font.pointSize: Theme.fontCaption
            }
        }
    }
}
