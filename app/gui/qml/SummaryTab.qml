// The Summary tab: three pages chosen by a button group (the averages and
// charts, the positive tags, the negative tags), and the pages opened from
// them (the graph, a tag's records, the gallery) stacked over it.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: tab
    objectName: "summaryTab"
    property bool wide: false
    readonly property var summary: Summary.controller

    Component.onCompleted: {
        Summary.open()
        if (tab.summary)
            tab.summary.appear()
    }
    onVisibleChanged: {
        if (!tab.summary)
            return
        if (visible)
            tab.summary.appear()
        else
            tab.summary.disappear()
    }

    Connections {
        target: tab.summary
        function onGraphOpened(graph) { stack.push(graphComponent, { "graph": graph }) }
        function onHistoryOpened(history) { stack.push(historyComponent, { "history": history, "closable": true }) }
        function onGalleryOpened(gallery) { stack.push(galleryComponent, { "gallery": gallery }) }
    }

    Component {
        id: graphComponent
        GraphPage { onBack: stack.pop() }
    }
    Component {
        id: historyComponent
        HistoryPage {
            wide: tab.wide
            onBack: stack.pop()
            onOpenHistory: function (child) { stack.push(historyComponent, { "history": child, "closable": true }) }
            onOpenGallery: function (gallery) { stack.push(galleryComponent, { "gallery": gallery }) }
        }
    }
    Component {
        id: galleryComponent
        GalleryPage { onBack: stack.pop() }
    }

    Component {
        id: rootComponent
        FocusScope {
            Rectangle { anchors.fill: parent; color: Theme.background }
            ColumnLayout {
                anchors.fill: parent
                spacing: 0

                // The three pages.
                Rectangle {
                    Layout.alignment: Qt.AlignHCenter
                    Layout.topMargin: 8
                    Layout.bottomMargin: 8
                    Layout.preferredHeight: 40
                    Layout.preferredWidth: Math.min(tab.width - 32, 420)
                    radius: 20
                    color: Theme.surfaceAlt
                    RowLayout {
                        anchors.fill: parent
                        anchors.margins: 3
                        spacing: 3
                        Repeater {
                            model: [L10n.tr("Overview"), L10n.tr("Positive"), L10n.tr("Negative")]
                            AbstractButton {
                                objectName: "summaryPage" + index
                                Layout.fillWidth: true
                                Layout.fillHeight: true
                                text: modelData
                                focusPolicy: Qt.StrongFocus
                                readonly property bool current: tab.summary && tab.summary.page === index
                                Accessible.role: Accessible.PageTab
                                Accessible.name: text
                                Accessible.checked: current
                                background: Rectangle {
                                    radius: 17
                                    color: parent.current ? Theme.surface : "transparent"
                                    border.width: parent.visualFocus ? 2 : 0
                                    border.color: Theme.focus
                                }
                                contentItem: Text {
                                    text: parent.text
                                    horizontalAlignment: Text.AlignHCenter
                                    verticalAlignment: Text.AlignVCenter
                                    color: parent.current ? Theme.text : Theme.textSecondary
                                    font.pointSize: Theme.fontBase
                                    font.weight: parent.current ? Font.DemiBold : Font.Normal
                                }
                                onClicked: tab.summary.page = index
                            }
                        }
                    }
                }

                StackLayout {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    currentIndex: tab.summary ? tab.summary.page : 0
                    SummaryTotalPage { summary: tab.summary; wide: tab.wide }
                    SummaryTagsPage { summary: tab.summary; negative: false; wide: tab.wide }
                    SummaryTagsPage { summary: tab.summary; negative: true; wide: tab.wide }
                }
            }
        }
    }

    StackView {
        id: stack
        objectName: "summaryStack"
        anchors.fill: parent
        visible: tab.summary !== null
        initialItem: rootComponent
        pushEnter: null
        pushExit: null
        popEnter: null
        popExit: null
        focus: true
    }
}
