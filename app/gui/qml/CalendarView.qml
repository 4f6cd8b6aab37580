// The calendar: every month since January 1970 in one column. The core lays
// the months out, says which ones the scroll shows and recycles their views;
// there is one item per view it made, placed where its month lies. A day
// shows its photo or an orange tile, its number, and a strip with one piece
// per record in that record's level colour; a tap on a day with records
// opens the day's list.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: root
    property var calendar
    readonly property real gridWidth: calendar ? 7 * calendar.daySize + 6 * calendar.space : 0
    readonly property real gridLeft: Math.max(0, (flick.width - gridWidth) / 2)

    function settle() {
        calendar.decelerationEnded()
        settleAnimation.to = calendar.contentOffset
        settleAnimation.restart()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // The month on screen, with steps to the months around it.
        RowLayout {
            Layout.fillWidth: true
            Layout.preferredHeight: 44
            Layout.leftMargin: 12
            Layout.rightMargin: 12
            RoundButton {
                objectName: "calendarPrevious"
                flat: true
                Accessible.name: L10n.tr("Previous month")
                contentItem: HistoryGlyph { name: "left"; color: Theme.text }
                enabled: root.calendar && root.calendar.currentMonthIndex > 0
                onClicked: root.step(-1)
            }
            Text {
                objectName: "calendarMonthTitle"
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: root.calendar ? root.calendar.currentMonthTitle : ""
                color: Theme.text
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
            }
            RoundButton {
                objectName: "calendarNext"
                flat: true
                Accessible.name: L10n.tr("Next month")
                contentItem: HistoryGlyph { name: "right"; color: Theme.text }
                enabled: root.calendar && root.calendar.currentMonthIndex < root.calendar.monthCount - 1
                onClicked: root.step(1)
            }
        }

        Flickable {
            id: flick
            objectName: "calendarFlick"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentWidth: width
            contentHeight: root.calendar ? root.calendar.contentHeight : 0
            boundsBehavior: Flickable.StopAtBounds
            onWidthChanged: root.layoutCalendar()
            onHeightChanged: root.layoutCalendar()
            onContentYChanged: if (root.calendar) root.calendar.scrolled(contentY)
            onMovementStarted: root.calendar.dragStarted()
            onMovementEnded: root.settle()

            NumberAnimation {
                id: settleAnimation
                target: flick
                property: "contentY"
                duration: 220
                easing.type: Easing.OutCubic
            }

            // Month titles.
            Repeater {
                model: root.calendar ? root.calendar.headers : []
                Text {
                    x: root.gridLeft
                    y: modelData.y
                    height: modelData.height
                    verticalAlignment: Text.AlignVCenter
                    text: modelData.title
                    color: Theme.text
                    font.pointSize: Theme.fontBase
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            // Months: one item per view the core made.
            Repeater {
                model: root.calendar
                Item {
                    id: month
                    required property int index
                    required property int monthIndex
                    required property var days
                    required property string title
                    required property real monthY
                    required property real monthHeight
                    x: root.gridLeft
                    y: monthY
                    width: root.gridWidth
                    height: monthHeight
                    visible: monthIndex >= 0
                    Accessible.role: Accessible.Table
                    Accessible.name: title

                    Row {
                        height: root.calendar.weekdaysHeight
                        Repeater {
                            model: root.calendar.weekdays
                            Text {
                                width: root.calendar.daySize + root.calendar.space
                                height: root.calendar.weekdaysHeight
                                text: modelData
                                color: "#b4b4b4"
                                font.pointSize: Theme.fontCaption
                                horizontalAlignment: Text.AlignHCenter
                                leftPadding: -root.calendar.space
                            }
                        }
                    }

                    Repeater {
                        model: month.days
                        AbstractButton {
                            id: day
                            objectName: "calendarDay_" + month.monthIndex + "_" + (modelData.day + 1)
                            x: modelData.x
                            y: modelData.y
                            width: root.calendar.daySize
                            height: root.calendar.daySize
                            readonly property bool exists: modelData.exists
                            focusPolicy: modelData.exists ? Qt.TabFocus : Qt.NoFocus
                            Accessible.role: Accessible.Button
                            Accessible.name: (modelData.day + 1) + (modelData.exists ? ": " + modelData.levels : "")
                            onClicked: root.calendar.pressDay(month.index, modelData.day)
                            background: Rectangle {
                                radius: 6
                                color: modelData.background
                                clip: true
                                border.width: day.visualFocus ? 2 : 0
                                border.color: Theme.focus
                                // The tile of a day whose records have no photo.
                                Rectangle {
                                    visible: modelData.look === 1
                                    anchors.fill: parent
                                    radius: 6
                                    color: "#ce5123"
                                    Rectangle {
                                        anchors.verticalCenter: parent.verticalCenter
                                        width: parent.width
                                        height: 3
                                        color: "white"
                                        opacity: 0.9
                                    }
                                }
                                Image {
                                    visible: modelData.look === 2
                                    anchors.fill: parent
                                    source: modelData.image
                                    fillMode: Image.PreserveAspectCrop
                                    asynchronous: true
                                    sourceSize: Qt.size(root.calendar.daySize * 2, root.calendar.daySize * 2)
                                }
                                // One piece per record, in date order.
                                Item {
                                    anchors.left: parent.left
                                    anchors.right: parent.right
                                    anchors.bottom: parent.bottom
                                    height: 6
                                    Repeater {
                                        model: modelData.strip
                                        Rectangle {
                                            x: modelData.x
                                            width: modelData.width
                                            height: 6
                                            color: modelData.color
                                        }
                                    }
                                }
                            }
                            contentItem: Text {
                                text: modelData.day + 1
                                color: modelData.numberColor
                                font.pointSize: Theme.fontCaption
                                font.weight: modelData.exists ? Font.DemiBold : Font.Normal
                                horizontalAlignment: Text.AlignLeft
                                verticalAlignment: Text.AlignTop
                                leftPadding: 4
                                topPadding: 2
                                style: modelData.look === 2 ? Text.Outline : Text.Normal
                                styleColor: "#60000000"
                            }
                        }
                    }
                }
            }
        }
    }

    function layoutCalendar() {
        if (!calendar || flick.width <= 0 || flick.height <= 0)
            return
        // A margin on either side, as the other cards have.
        calendar.setViewport(flick.width - 32, flick.height)
        flick.contentY = calendar.contentOffset
    }
    function step(delta) {
        var target = calendar.currentMonthIndex + delta
        var year = 1970 + Math.floor(target / 12)
        var monthNumber = target % 12 + 1
        calendar.pickMonth(year, monthNumber)
        flick.contentY = calendar.contentOffset
    }
    Component.onCompleted: layoutCalendar()
}
