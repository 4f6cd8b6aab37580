// The bars by day: one bar per record, as long as its level and in its
// colour with the level's number on it, grouped under the day's title, with
// a slider along the side to run through the whole list. Rows are made only
// for what shows, and each reads only its own record.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: root
    property var history
    readonly property alias view: list
    implicitWidth: 360
    Accessible.role: Accessible.List
    Accessible.name: L10n.tr("Records")

    Connections {
        target: root.history
        function onScrollRequested(index, toMiddle) {
            if (index >= 0 && index < list.count)
                list.positionViewAtIndex(index, toMiddle ? ListView.Center : ListView.Contain)
        }
    }

    ListView {
        id: list
        objectName: "historyList"
        anchors.fill: parent
        anchors.rightMargin: slider.visible ? slider.width : 0
        clip: true
        focus: true
        model: root.history ? root.history.model : null
        currentIndex: root.history ? root.history.selectedIndex : -1
        // The chosen row stays in view when the detail pane takes room.
        onCurrentIndexChanged: if (currentIndex >= 0) Qt.callLater(function () {
            if (list.currentIndex >= 0) list.positionViewAtIndex(list.currentIndex, ListView.Contain)
        })
        onHeightChanged: if (currentIndex >= 0) Qt.callLater(function () {
            if (list.currentIndex >= 0) list.positionViewAtIndex(list.currentIndex, ListView.Contain)
        })
        highlightFollowsCurrentItem: false
        boundsBehavior: Flickable.StopAtBounds
        reuseItems: true
        cacheBuffer: 200
        // Start at the newest records, as a journal is read.
        Component.onCompleted: positionViewAtEnd()
        onCountChanged: if (root.history && root.history.selectedIndex < 0) positionViewAtEnd()

        Keys.onUpPressed: root.history.select(Math.max(0, root.history.selectedIndex - 1))
        Keys.onDownPressed: root.history.select(Math.min(count - 1, root.history.selectedIndex + 1))
        Keys.onDeletePressed: root.history.remove()
        Keys.onReturnPressed: root.history.share()

        section.property: "dayTitle"
        section.delegate: Item {
            width: ListView.view.width
            height: 40
            Text {
                anchors.left: parent.left
                anchors.leftMargin: 20
                anchors.bottom: parent.bottom
                anchors.bottomMargin: 6
                text: section
                color: Theme.textSecondary
                font.pointSize: Theme.fontCaption
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
            }
        }

        delegate: AbstractButton {
            id: row
            required property int index
            required property int level
            required property string levelText
            required property color levelColor
            required property string time
            required property string comment
            required property bool hasPhoto
            required property bool selected
            width: ListView.view.width
            height: 44
            focusPolicy: Qt.NoFocus
            Accessible.role: Accessible.ListItem
            Accessible.name: time + ", " + level + " " + levelText + (comment !== "" ? ", " + comment : "")
            Accessible.selected: selected
            onClicked: {
                root.history.select(index)
                list.forceActiveFocus()
            }

            background: Rectangle {
                color: row.selected ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, Theme.dark ? 0.18 : 0.08)
                                    : "transparent"
            }
            contentItem: Item {
                Text {
                    id: timeText
                    anchors.left: parent.left
                    anchors.leftMargin: 20
                    anchors.verticalCenter: parent.verticalCenter
                    width: 64
                    text: row.time
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontCaption
                }
                // The bar: its length grows with the level, a little more
                // when selected.
                Rectangle {
                    id: bar
                    anchors.left: timeText.right
                    anchors.verticalCenter: parent.verticalCenter
                    readonly property real track: parent.width - timeText.width - 60
                    width: Math.max(34, track * row.level / 10 + (row.selected ? 10 : 0))
                    height: row.selected ? 30 : 24
                    radius: height / 2
                    color: row.levelColor
                    border.width: row.selected ? 2 : 0
                    border.color: Theme.text
                    Behavior on width { NumberAnimation { duration: 160; easing.type: Easing.OutCubic } }
                    Text {
                        anchors.right: parent.right
                        anchors.rightMargin: 10
                        anchors.verticalCenter: parent.verticalCenter
                        text: row.level
                        color: Theme.levelTextColor(row.level)
                        font.pointSize: Theme.fontCaption
                        font.weight: Font.DemiBold
                    }
                }
                Icon {
                    anchors.left: bar.right
                    anchors.leftMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    visible: row.hasPhoto
                    name: "photo"
                    size: 18
                    color: Theme.textSecondary
                    Accessible.ignored: true
                }
            }
        }
    }

    // The slider runs through the whole list: dragging selects as it goes.
    Slider {
        id: slider
        objectName: "historySlider"
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.topMargin: 8
        anchors.bottomMargin: 8
        width: 28
        orientation: Qt.Vertical
        visible: list.count > 1
        from: list.count - 1
        to: 0
        stepSize: 1
        snapMode: Slider.SnapAlways
        value: root.history && root.history.selectedIndex >= 0 ? root.history.selectedIndex : list.count - 1
        Accessible.name: L10n.tr("Records")
        onMoved: {
            var index = Math.round(value)
            root.history.select(index)
            list.positionViewAtIndex(index, ListView.Center)
        }
        background: Rectangle {
            x: (slider.width - width) / 2
            width: 4
            height: slider.availableHeight
            y: slider.topPadding
            radius: 2
            color: Theme.separator
        }
        handle: Rectangle {
            x: (slider.width - width) / 2
            y: slider.topPadding + slider.visualPosition * (slider.availableHeight - height)
            width: 18
            height: 18
            radius: 9
            color: slider.pressed ? Theme.accent : Theme.surface
            border.color: Theme.accent
            border.width: 2
        }
    }
}
