// The Map tab: records with a place as pins over the map, each a pie of its
// moods (or a circle of their average) drawn by the core; a click on a pin
// centres it (one place) or fits its records on screen (several). Above the
// map: the date and tag filter, the pie/average switch, the map type and
// the user's own position.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: tab
    objectName: "mapTab"
    property bool wide: false
    readonly property var viewport: MapTab.viewport
    // The pin clicked last, for the card with its moods.
    property var details: null
    // Its records, newest first; a click opens one in the editor.
    property var records: []
    property alias filterSheet: filterSheet

    // [2, 2, 7] → [{level: 2, count: 2}, {level: 7, count: 1}]
    function tally(levels) {
        var out = []
        for (var i = 0; i < levels.length; ++i) {
            if (out.length > 0 && out[out.length - 1].level === levels[i])
                out[out.length - 1].count += 1
            else
                out.push({ level: levels[i], count: 1 })
        }
        return out
    }
    // A new reading of the pins: the card of an old pin goes.
    Connections {
        target: MapTab
        function onFilterChanged() {
            tab.details = null
            tab.records = []
        }
    }

    Component.onCompleted: MapTab.open()
    onVisibleChanged: visible ? MapTab.appear() : MapTab.disappear()
    Timer {
        // The journal opens after the splash; the tab may be made before.
        interval: 100
        repeat: true
        running: !MapTab.ready
        onTriggered: MapTab.open()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // --- The bar above the map ---------------------------------------
        Rectangle {
            Layout.fillWidth: true
            Layout.preferredHeight: bar.implicitHeight + 16
            color: Theme.background
            Flow {
                id: bar
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                anchors.margins: 12
                spacing: 8
                ChipButton {
                    objectName: "mapFilterButton"
                    iconName: "date"
                    text: MapTab.dateFromText !== "" ? MapTab.dateFromText + " – " + MapTab.dateToText
                                                     : L10n.tr("All dates")
                    checked: MapTab.dateFromText !== ""
                    onClicked: filterSheet.openDates()
                }
                ChipButton {
                    objectName: "mapTagButton"
                    iconName: "edit"
                    text: MapTab.tagFilterText !== "" ? MapTab.tagFilterText : L10n.tr("All tags")
                    checked: MapTab.tagFilterText !== ""
                    onClicked: filterSheet.openTags()
                }
                ChipButton {
                    objectName: "mapClearFilter"
                    visible: MapTab.filtered
                    iconName: "close"
                    text: L10n.tr("Clear")
                    onClicked: MapTab.clearFilter()
                }
                ChipButton {
                    objectName: "mapModeButton"
                    iconName: "summary"
                    text: MapTab.averageDrawing ? L10n.tr("Average") : L10n.tr("Pie")
                    Accessible.name: L10n.tr("Pins show") + " " + text
                    onClicked: MapTab.toggleMode()
                }
                ChipButton {
                    objectName: "mapTypeButton"
                    iconName: "map"
                    text: MapTab.mapTypeTitles[MapTab.mapType]
                    onClicked: typeMenu.open()
                    Menu {
                        id: typeMenu
                        objectName: "mapTypeMenu"
                        Repeater {
                            model: MapTab.mapTypeTitles
                            MenuItem {
                                text: modelData
                                // Only street tiles are free to use; satellite
                                // pictures need a server of their own.
                                enabled: index === 0
                                onTriggered: MapTab.selectMapType(index)
                            }
                        }
                    }
                }
                ChipButton {
                    objectName: "mapLocationButton"
                    iconName: "place"
                    text: L10n.tr("My location")
                    onClicked: {
                        locationHint.shown = true
                        MapTab.showMyLocation()
                    }
                }
            }
        }

        // --- The map ------------------------------------------------------------
        MapSurface {
            id: map
            objectName: "mapSurface"
            Layout.fillWidth: true
            Layout.fillHeight: true
            viewport: MapTab.viewport
            tiles: MapTab.tiles
            onClickedAt: tab.details = null

            Repeater {
                id: pins
                objectName: "mapPins"
                model: tab.viewport.pins
                Image {
                    objectName: "mapPin" + index
                    readonly property int pinCount: model.count
                    readonly property bool pinUnique: model.unique
                    width: 40
                    height: 40
                    x: (tab.viewport.originX, tab.viewport.scale, tab.viewport.viewX(model.mapX)) - width / 2
                    y: (model.mapY - tab.viewport.originY) / tab.viewport.scale - height / 2
                    source: model.picture
                    sourceSize: Qt.size(80, 80)
                    smooth: true
                    opacity: model.pinOpacity
                    Behavior on opacity { NumberAnimation { duration: 200 } }
                    Accessible.role: Accessible.Button
                    Accessible.name: model.title + ": " + model.subtitle
                    MouseArea {
                        anchors.fill: parent
                        cursorShape: Qt.PointingHandCursor
                        onClicked: {
                            tab.details = MapTab.pinDetails(index)
                            tab.records = MapTab.pinRecords(index)
                            MapTab.pinClicked(index)
                        }
                    }
                }
            }

            // The user's own position.
            Rectangle {
                objectName: "mapOwnLocation"
                visible: MapTab.hasOwnLocation
                readonly property var at: (tab.viewport.originX, tab.viewport.scale,
                                           tab.viewport.pointFor(MapTab.ownLatitude, MapTab.ownLongitude))
                x: at.x - width / 2
                y: at.y - height / 2
                width: 18
                height: 18
                radius: 9
                color: "#2f80ed"
                border.color: "white"
                border.width: 3
            }

            // Nothing located: say so over the map.
            Card {
                objectName: "mapEmpty"
                visible: MapTab.ready && MapTab.settled && MapTab.locatedCount === 0
                anchors.centerIn: parent
                width: Math.min(parent.width - 48, 380)
                height: emptyText.implicitHeight + 32
                Text {
                    id: emptyText
                    anchors.fill: parent
                    anchors.margins: 16
                    text: MapTab.filtered ? L10n.tr("No record with a place matches the filter.")
                                          : L10n.tr("No record has a place yet. Add one in the editor, or let Lumeo stamp new records where you are (Settings → Location).")
                    color: Theme.text
                    wrapMode: Text.Wrap
                    horizontalAlignment: Text.AlignHCenter
                    font.pointSize: Theme.fontBase
                }
            }

            // Why the own position is missing.
            Rectangle {
                objectName: "mapLocationProblem"
                visible: MapTab.locationProblem !== "" && locationHint.shown
                anchors.bottom: parent.bottom
                anchors.left: parent.left
                anchors.margins: 12
                anchors.bottomMargin: map.bottomInset + 12
                width: Math.min(parent.width - 80, 420)
                height: locationText.implicitHeight + 16
                radius: 8
                color: Theme.surface
                border.color: Theme.separator
                Text {
                    id: locationText
                    anchors.fill: parent
                    anchors.margins: 8
                    text: MapTab.locationProblem
                    color: Theme.textSecondary
                    wrapMode: Text.Wrap
                    font.pointSize: Theme.fontCaption
                }
            }

            // The moods of the pin clicked last.
            Card {
                id: detailCard
                objectName: "mapPinDetails"
                visible: tab.details !== null && tab.details.title !== undefined
                anchors.left: parent.left
                anchors.top: parent.top
                anchors.margins: 12
                width: Math.min(parent.width - 24, 360)
                height: detailColumn.implicitHeight + 24
                ColumnLayout {
                    id: detailColumn
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 6
                    RowLayout {
                        Layout.fillWidth: true
                        Text {
                            objectName: "mapPinTitle"
                            Layout.fillWidth: true
                            text: tab.details ? tab.details.title : ""
                            color: Theme.text
                            font.weight: Font.DemiBold
                        }
                        RoundButton {
                            flat: true
                            width: 28
                            height: 28
                            Accessible.name: L10n.tr("Close")
                            contentItem: Icon { name: "close"; color: Theme.textSecondary; size: 16 }
                            onClicked: tab.details = null
                        }
                    }
                    Text {
                        Layout.fillWidth: true
                        visible: text !== ""
                        text: tab.details && tab.details.unique ? L10n.tr("One place") : ""
                        color: Theme.textSecondary
                        font.pointSize: Theme.fontCaption
                    }
                    // Its moods, ascending: each level with how often.
                    Flow {
                        Layout.fillWidth: true
                        spacing: 4
                        Repeater {
                            objectName: "mapPinLevels"
                            model: tab.tally(tab.details ? tab.details.levels : [])
                            Rectangle {
                                width: levelLabel.implicitWidth + 14
                                height: 26
                                radius: 6
                                color: Theme.levelColor(modelData.level)
                                Accessible.name: Theme.levelText(modelData.level) + " × " + modelData.count
                                Text {
                                    id: levelLabel
                                    anchors.centerIn: parent
                                    text: modelData.count > 1 ? modelData.level + "  ×" + modelData.count
                                                              : String(modelData.level)
                                    color: Theme.readableOn(Theme.levelColor(modelData.level))
                                    font.weight: Font.Bold
                                }
                            }
                        }
                    }
                    ListView {
                        id: recordList
                        objectName: "mapPinRecords"
                        Layout.fillWidth: true
                        Layout.preferredHeight: Math.min(contentHeight, tab.height * 0.35)
                        clip: true
                        model: tab.records
                        boundsBehavior: Flickable.StopAtBounds
                        delegate: ItemDelegate {
                            objectName: "mapPinRecord" + index
                            width: recordList.width
                            height: 44
                            Accessible.name: Theme.levelText(modelData.level) + ", " + modelData.date + ", " + modelData.text
                            onClicked: MapTab.openRecord(index)
                            contentItem: Row {
                                spacing: 8
                                Rectangle {
                                    anchors.verticalCenter: parent.verticalCenter
                                    width: 24
                                    height: 24
                                    radius: 6
                                    color: Theme.levelColor(modelData.level)
                                    Text {
                                        anchors.centerIn: parent
                                        text: modelData.level
                                        color: Theme.readableOn(Theme.levelColor(modelData.level))
                                        font.weight: Font.Bold
                                    }
                                }
                                Column {
                                    anchors.verticalCenter: parent.verticalCenter
                                    width: recordList.width - 40
                                    Text {
                                        text: modelData.date
                                        color: Theme.textSecondary
                                        font.pointSize: Theme.fontCaption
                                    }
                                    Text {
                                        width: parent.width
                                        text: modelData.text
                                        color: Theme.text
                                        elide: Text.ElideRight
                                    }
                                }
                            }
                        }
                    }
                }
            }
        }
    }

    // The own position's trouble shows once the user asks for it, or after a
    // few seconds on the tab.
    QtObject {
        id: locationHint
        property bool shown: false
    }
    Timer {
        interval: 2500
        running: tab.visible && MapTab.ready
                 && !(typeof appScreenshotMode !== "undefined" && appScreenshotMode)
        onTriggered: locationHint.shown = true
    }

    MapFilterSheet { id: filterSheet }
}
