// One history list: the tab's own, a tag's or a day's. A header with the
// list/calendar switch and the filter, then the bars by day beside the
// selected record's detail (wide) or above it (narrow), or the calendar.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: page
    objectName: "historyPage"
    property var history
    property bool wide: false
    // A tag's or a day's page: it has a back button and closes its history.
    property bool closable: false
    readonly property alias periodSheet: periodSheet
    readonly property alias tagSheet: tagSheet
    signal openHistory(var child)
    signal openGallery(var gallery)
    signal back()

    Component.onDestruction: {
        if (closable && history)
            history.close()
    }

    Connections {
        target: page.history
        function onHistoryOpened(child) { page.openHistory(child) }
        function onGalleryOpened(gallery) { page.openGallery(gallery) }
        function onSheetsClosed() {
            periodSheet.close()
            tagSheet.close()
        }
    }

    Keys.onEscapePressed: function (event) {
        if (page.closable) {
            page.back()
            event.accepted = true
        }
    }

    Rectangle { anchors.fill: parent; color: Theme.background }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // --- Header ------------------------------------------------------
        // Anchored rather than a row layout: the header must hold at any
        // width from 360 px.
        Item {
            Layout.fillWidth: true
            Layout.preferredHeight: 56

            RoundButton {
                id: backButton
                objectName: "historyBack"
                anchors.left: parent.left
                anchors.leftMargin: 12
                anchors.verticalCenter: parent.verticalCenter
                visible: page.closable
                flat: true
                Accessible.name: L10n.tr("Back")
                contentItem: Icon { name: "back"; color: Theme.text }
                onClicked: page.back()
            }
            Text {
                anchors.left: backButton.visible ? backButton.right : parent.left
                anchors.leftMargin: backButton.visible ? 8 : 20
                anchors.right: tools.left
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: page.closable && page.history ? page.history.title : ""
                color: Theme.text
                elide: Text.ElideRight
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
            }
            Row {
                id: tools
                anchors.right: parent.right
                anchors.rightMargin: 12
                anchors.verticalCenter: parent.verticalCenter
                spacing: 8
            // List or calendar, as a two-part switch.
            Rectangle {
                visible: page.history && page.history.canShowCalendar
                width: 96
                height: 40
                radius: 20
                color: Theme.surfaceAlt
                Row {
                    anchors.centerIn: parent
                    spacing: 4
                    Repeater {
                        model: [{ "glyph": "list", "calendar": false, "name": "List" },
                                { "glyph": "calendar", "calendar": true, "name": "Calendar" }]
                        AbstractButton {
                            objectName: modelData.calendar ? "historyCalendarMode" : "historyListMode"
                            width: 44
                            height: 34
                            focusPolicy: Qt.StrongFocus
                            Accessible.role: Accessible.PageTab
                            Accessible.name: L10n.tr(modelData.name)
                            Accessible.checked: checkedMode
                            readonly property bool checkedMode: page.history && page.history.calendarMode === modelData.calendar
                            background: Rectangle {
                                radius: 17
                                color: parent.checkedMode ? Theme.surface : "transparent"
                                border.width: parent.visualFocus ? 2 : 0
                                border.color: Theme.focus
                            }
                            contentItem: HistoryGlyph {
                                name: modelData.glyph
                                color: parent.checkedMode ? Theme.accent : Theme.textSecondary
                            }
                            onClicked: page.history.calendarMode = modelData.calendar
                        }
                    }
                }
            }
            RoundButton {
                objectName: "historyFilterButton"
                visible: page.history && !page.closable
                flat: true
                Accessible.name: page.history && page.history.calendarMode ? L10n.tr("Filter by tags") : L10n.tr("Filter by period")
                contentItem: HistoryGlyph {
                    name: "filter"
                    color: page.history && page.history.filtered ? Theme.accent : Theme.text
                }
                background: Rectangle {
                    radius: width / 2
                    color: page.history && page.history.filtered
                           ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.14) : "transparent"
                    border.width: parent.visualFocus ? 2 : 0
                    border.color: Theme.focus
                }
                onClicked: {
                    if (page.history.calendarMode) {
                        page.history.openTagFilter()
                        tagSheet.open()
                    } else {
                        page.history.openPeriodFilter()
                        periodSheet.open()
                    }
                }
            }
        }
        }

        // --- The period in force -------------------------------------------
        Rectangle {
            Layout.fillWidth: true
            Layout.leftMargin: 16
            Layout.rightMargin: 16
            Layout.preferredHeight: 36
            visible: page.history && page.history.filtered && !page.history.calendarMode
            radius: 18
            color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.12)
            RowLayout {
                anchors.fill: parent
                anchors.leftMargin: 14
                anchors.rightMargin: 6
                Text {
                    objectName: "historyPeriodText"
                    Layout.fillWidth: true
                    text: page.history ? page.history.fromLabel + " – " + page.history.toLabel : ""
                    color: Theme.text
                    elide: Text.ElideRight
                    font.pointSize: Theme.fontCaption
                }
                HistoryButton {
                    objectName: "historyPeriodClear"
                    implicitHeight: 30
                    text: L10n.tr("Clear")
                    onClicked: page.history.clearPeriodFilter()
                }
            }
        }

        // --- Content ------------------------------------------------------------
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            Text {
                objectName: "historyEmpty"
                anchors.centerIn: parent
                visible: page.history && page.history.count === 0 && !page.history.calendarMode
                width: parent.width - 48
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: L10n.tr("No records in this period")
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
            }

            GridLayout {
                anchors.fill: parent
                anchors.margins: page.wide ? 16 : 0
                visible: page.history && !page.history.calendarMode && page.history.count > 0
                columns: page.wide ? 2 : 1
                columnSpacing: 16
                rowSpacing: 0

                HistoryList {
                    id: list
                    history: page.history
                    Layout.fillHeight: true
                    Layout.fillWidth: !page.wide
                    Layout.preferredWidth: page.wide ? Math.max(360, Math.min(480, page.width * 0.42)) : -1
                    focus: true
                }
                HistoryDetail {
                    history: page.history
                    wide: page.wide
                    Layout.fillWidth: true
                    Layout.fillHeight: page.wide
                    Layout.preferredHeight: page.wide ? -1 : Math.min(implicitHeight, page.height * 0.46)
                    Layout.margins: page.wide ? 0 : 12
                    visible: page.wide || (page.history && page.history.hasDetail)
                }
            }

            Loader {
                anchors.fill: parent
                active: page.history && page.history.calendarMode && page.history.calendar !== null
                sourceComponent: CalendarView {
                    calendar: page.history.calendar
                }
            }
        }
    }

    HistoryPeriodSheet {
        id: periodSheet
        history: page.history
    }
    HistoryTagSheet {
        id: tagSheet
        history: page.history
    }
}
