// The History tab: the records by day with the selected one's detail, the
// calendar, and the pages opened from them (a tag's or a day's records, the
// gallery) stacked over it. Everything it shows comes from the History
// singleton's controller; this file lays it out.
import QtQuick
import QtQuick.Controls.Basic
import Lumeo.Core

Item {
    id: tab
    objectName: "historyTab"
    property bool wide: false
    readonly property var history: History.controller

    Component.onCompleted: {
        History.open()
        if (!tab.history)
            return
        tab.history.appear()
        // A screenshot shows a record in the detail pane: the newest.
        if (typeof appScreenshotMode !== "undefined" && appScreenshotMode && tab.history.selectedIndex < 0)
            tab.history.select(tab.history.count - 1)
    }
    onVisibleChanged: {
        if (!tab.history)
            return
        if (visible)
            tab.history.appear()
        else
            tab.history.disappear()
    }

    function openHistory(child) {
        if (child)
            stack.push(pageComponent, { "history": child, "closable": true })
    }
    function openGallery(gallery) {
        if (gallery)
            stack.push(galleryComponent, { "gallery": gallery })
    }

    Component {
        id: rootComponent
        HistoryPage {
            history: tab.history
            wide: tab.wide
            onOpenHistory: function (child) { tab.openHistory(child) }
            onOpenGallery: function (gallery) { tab.openGallery(gallery) }
        }
    }
    Component {
        id: pageComponent
        HistoryPage {
            wide: tab.wide
            onOpenHistory: function (child) { tab.openHistory(child) }
            onOpenGallery: function (gallery) { tab.openGallery(gallery) }
            onBack: stack.pop()
        }
    }
    Component {
        id: galleryComponent
        GalleryPage {
            onBack: stack.pop()
        }
    }

    StackView {
        id: stack
        objectName: "historyStack"
        anchors.fill: parent
        visible: tab.history !== null
        initialItem: rootComponent
        // Calm and instant under the software renderer.
        pushEnter: null
        pushExit: null
        popEnter: null
        popExit: null
        focus: true
    }
}
