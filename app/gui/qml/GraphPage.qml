// The scrollable graph: the mood line of a range with lines of tag values.
// Pinching and the scroll wheel zoom (the core clamps between ten days and
// the whole journal), dragging or the arrows pan by a range, and the series
// and the two settings sit beside or below the picture.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: page
    objectName: "graphPage"
    property var graph
    signal back()
    focus: true
    readonly property bool wide: width >= 760

    Component.onDestruction: if (graph) graph.close()
    Keys.onEscapePressed: page.back()
    Keys.onLeftPressed: graph.moveLeft()
    Keys.onRightPressed: graph.moveRight()
    Keys.onPressed: function (event) {
        if (event.key === Qt.Key_Plus || event.key === Qt.Key_Equal) {
            graph.wheel(1)
            event.accepted = true
        } else if (event.key === Qt.Key_Minus) {
            graph.wheel(-1)
            event.accepted = true
        }
    }

    Rectangle { anchors.fill: parent; color: Theme.background }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 8

        RowLayout {
            Layout.fillWidth: true
            RoundButton {
                objectName: "graphBack"
                flat: true
                Accessible.name: L10n.tr("Back")
                contentItem: Icon { name: "back"; color: Theme.text }
                onClicked: page.back()
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Text {
                    text: L10n.tr("Graph")
                    color: Theme.text
                    font.pointSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
                Text {
                    objectName: "graphRange"
                    text: page.graph ? page.graph.rangeText : ""
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontCaption
                }
            }
            RoundButton {
                objectName: "graphLeft"
                flat: true
                enabled: page.graph && page.graph.canMoveLeft
                Accessible.name: L10n.tr("Earlier")
                contentItem: HistoryGlyph { name: "left"; color: parent.enabled ? Theme.text : Theme.separator }
                onClicked: page.graph.moveLeft()
            }
            RoundButton {
                objectName: "graphZoomOut"
                flat: true
                Accessible.name: L10n.tr("Zoom out")
                contentItem: HistoryGlyph { name: "zoomOut"; color: Theme.text }
                onClicked: page.graph.wheel(-1)
            }
            RoundButton {
                objectName: "graphZoomIn"
                flat: true
                Accessible.name: L10n.tr("Zoom in")
                contentItem: HistoryGlyph { name: "zoomIn"; color: Theme.text }
                onClicked: page.graph.wheel(1)
            }
            RoundButton {
                objectName: "graphRight"
                flat: true
                enabled: page.graph && page.graph.canMoveRight
                Accessible.name: L10n.tr("Later")
                contentItem: HistoryGlyph { name: "right"; color: parent.enabled ? Theme.text : Theme.separator }
                onClicked: page.graph.moveRight()
            }
        }

        GridLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            columns: page.wide ? 2 : 1
            columnSpacing: 12
            rowSpacing: 12

            Rectangle {
                id: canvas
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.minimumHeight: 200
                radius: Theme.radius
                clip: true
                color: "#2a3d66"
                onWidthChanged: resize()
                onHeightChanged: resize()
                function resize() {
                    if (page.graph && width > 0 && height > 0)
                        page.graph.setViewSize(width, height)
                }
                Component.onCompleted: resize()

                Image {
                    objectName: "graphImage"
                    anchors.fill: parent
                    source: page.graph && page.graph.source !== "" ? "image://lumeo/" + page.graph.source : ""
                    cache: false
                    Accessible.role: Accessible.Graphic
                    Accessible.name: L10n.tr("Graph") + " " + (page.graph ? page.graph.rangeText : "")
                }
                Text {
                    anchors.centerIn: parent
                    visible: page.graph && page.graph.empty
                    text: L10n.tr("No records yet")
                    color: "white"
                    font.pointSize: Theme.fontTitle
                }
                // The zoom while a pinch goes on: "%ld days".
                Rectangle {
                    anchors.centerIn: parent
                    visible: page.graph && page.graph.zooming
                    width: zoomLabel.implicitWidth + 32
                    height: 44
                    radius: 22
                    color: "#cc000000"
                    Text {
                        id: zoomLabel
                        anchors.centerIn: parent
                        text: page.graph ? page.graph.zoomText : ""
                        color: "white"
                        font.pointSize: Theme.fontTitle
                    }
                }
                PinchArea {
                    anchors.fill: parent
                    onPinchUpdated: function (pinch) { page.graph.pinch(pinch.scale) }
                    onPinchFinished: page.graph.pinchEnd()
                    MouseArea {
                        anchors.fill: parent
                        property real pressX: 0
                        onPressed: function (mouse) { pressX = mouse.x }
                        onReleased: function (mouse) {
                            var dx = mouse.x - pressX
                            if (dx > 60)
                                page.graph.moveLeft()
                            else if (dx < -60)
                                page.graph.moveRight()
                        }
                        onWheel: function (wheel) {
                            var notches = Math.round(wheel.angleDelta.y / 120)
                            if (notches !== 0)
                                page.graph.wheel(notches)
                        }
                    }
                }
            }

            // Series and settings.
            Card {
                Layout.fillWidth: !page.wide
                Layout.preferredWidth: page.wide ? 260 : -1
                Layout.fillHeight: page.wide
                Layout.preferredHeight: page.wide ? -1 : Math.min(side.implicitHeight + 24, 200)
                Flickable {
                    anchors.fill: parent
                    anchors.margins: 12
                    contentHeight: side.implicitHeight
                    clip: true
                    boundsBehavior: Flickable.StopAtBounds
                    ColumnLayout {
                        id: side
                        width: parent.width
                        spacing: 2
                        Text {
                            text: L10n.tr("Tag values")
                            color: Theme.text
                            font.pointSize: Theme.fontBase
                            font.weight: Font.DemiBold
                        }
                        Text {
                            visible: page.graph && page.graph.series.length === 0
                            Layout.fillWidth: true
                            wrapMode: Text.Wrap
                            text: L10n.tr("Tags with a number, like #sleep:8h, can be drawn here.")
                            color: Theme.textSecondary
                            font.pointSize: Theme.fontCaption
                        }
                        Repeater {
                            model: page.graph ? page.graph.series : []
                            CheckDelegate {
                                objectName: "graphSeries_" + modelData.key
                                Layout.fillWidth: true
                                checked: modelData.selected
                                text: "#" + modelData.key + "   " + modelData.range + "   (" + modelData.count + ")"
                                onClicked: page.graph.toggleSeries(modelData.key)
                                indicator.opacity: 1
                                Rectangle {
                                    visible: modelData.selected
                                    anchors.left: parent.left
                                    anchors.verticalCenter: parent.verticalCenter
                                    width: 4
                                    height: parent.height - 12
                                    radius: 2
                                    color: modelData.color
                                }
                            }
                        }
                        Repeater {
                            model: page.graph ? page.graph.settings : []
                            SwitchDelegate {
                                objectName: "graphSetting_" + modelData.key
                                Layout.fillWidth: true
                                text: modelData.title
                                checked: modelData.on
                                onToggled: page.graph.setSetting(modelData.key, checked)
                            }
                        }
                    }
                }
            }
        }
    }
}
