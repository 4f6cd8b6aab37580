// A map: the tiles under everything, then whatever the user of this item
// puts in it (pins, a cross), the zoom buttons, the tiles' attribution and
// the tile server's trouble. Drag pans; the wheel, a pinch, the buttons and
// + / − zoom; the arrow keys pan. A click that is not a drag reports where.
import QtQuick
import QtQuick.Controls.Basic
import Lumeo.Core

FocusScope {
    id: surface
    property var viewport
    property var tiles
    // Pins and marks go here, over the tiles.
    default property alias content: overlay.data
    // What the bottom of the map holds (attribution, the tiles' trouble), so
    // that content can keep clear of it.
    readonly property real bottomInset: attribution.height + (problem.visible ? problem.height + 12 : 0)
    signal clickedAt(real x, real y)

    activeFocusOnTab: true
    Accessible.role: Accessible.Graphic
    Accessible.name: L10n.tr("Map")
    clip: true

    onWidthChanged: if (viewport) viewport.setSize(width, height)
    onHeightChanged: if (viewport) viewport.setSize(width, height)
    Component.onCompleted: if (viewport) viewport.setSize(width, height)

    Keys.onPressed: function (event) {
        var step = 80
        if (event.key === Qt.Key_Left) viewport.panBy(step, 0)
        else if (event.key === Qt.Key_Right) viewport.panBy(-step, 0)
        else if (event.key === Qt.Key_Up) viewport.panBy(0, step)
        else if (event.key === Qt.Key_Down) viewport.panBy(0, -step)
        else if (event.key === Qt.Key_Plus || event.key === Qt.Key_Equal) viewport.zoomIn()
        else if (event.key === Qt.Key_Minus) viewport.zoomOut()
        else return
        event.accepted = true
    }

    TileLayer {
        id: tileLayer
        objectName: "mapTiles"
        anchors.fill: parent
        viewport: surface.viewport
        source: surface.tiles
        background: Theme.dark ? "#2a2d31" : "#e9e6df"
        tileOpacity: Theme.dark ? 0.82 : 1.0
    }

    MouseArea {
        id: drag
        anchors.fill: parent
        property real lastX
        property real lastY
        property real travelled
        onPressed: function (mouse) {
            surface.forceActiveFocus()
            lastX = mouse.x
            lastY = mouse.y
            travelled = 0
        }
        onPositionChanged: function (mouse) {
            var dx = mouse.x - lastX, dy = mouse.y - lastY
            travelled += Math.abs(dx) + Math.abs(dy)
            lastX = mouse.x
            lastY = mouse.y
            if (travelled > 4)
                surface.viewport.panBy(dx, dy)
        }
        onClicked: function (mouse) {
            if (travelled <= 4)
                surface.clickedAt(mouse.x, mouse.y)
        }
        onDoubleClicked: function (mouse) { surface.viewport.zoomBy(2, mouse.x, mouse.y) }
        onWheel: function (wheel) {
            var steps = wheel.angleDelta.y / 120
            if (steps !== 0)
                surface.viewport.zoomBy(Math.pow(2, steps / 2), wheel.x, wheel.y)
        }
    }

    PinchHandler {
        id: pinch
        target: null
        property real lastScale: 1
        onActiveChanged: lastScale = 1
        onActiveScaleChanged: {
            surface.viewport.zoomBy(activeScale / lastScale, centroid.position.x, centroid.position.y)
            lastScale = activeScale
        }
    }

    Item {
        id: overlay
        anchors.fill: parent
    }

    // Zoom buttons.
    Column {
        anchors.right: parent.right
        anchors.bottom: attribution.top
        anchors.margins: 12
        spacing: 6
        Repeater {
            model: [{ name: "mapZoomIn", label: "+", a11y: L10n.tr("Zoom in") },
                    { name: "mapZoomOut", label: "−", a11y: L10n.tr("Zoom out") }]
            RoundButton {
                objectName: modelData.name
                width: 40
                height: 40
                text: modelData.label
                font.pointSize: Theme.fontTitle
                Accessible.name: modelData.a11y
                palette.button: Theme.surface
                palette.buttonText: Theme.text
                onClicked: index === 0 ? surface.viewport.zoomIn() : surface.viewport.zoomOut()
            }
        }
    }

    // The tile server's trouble, plainly; the map keeps working without tiles.
    Rectangle {
        id: problem
        objectName: "mapTileProblem"
        visible: surface.tiles && surface.tiles.problem !== ""
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: attribution.top
        anchors.margins: 12
        anchors.rightMargin: 64
        height: problemText.implicitHeight + 16
        radius: 8
        color: Theme.surface
        border.color: Theme.danger
        Text {
            id: problemText
            anchors.fill: parent
            anchors.margins: 8
            text: surface.tiles ? surface.tiles.problem : ""
            color: Theme.text
            wrapMode: Text.Wrap
            font.pointSize: Theme.fontCaption
        }
    }

    // Always shown, as the tiles' licence asks.
    Rectangle {
        id: attribution
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        width: attributionText.implicitWidth + 12
        height: attributionText.implicitHeight + 6
        color: Qt.rgba(Theme.surface.r, Theme.surface.g, Theme.surface.b, 0.85)
        Text {
            id: attributionText
            objectName: "mapAttribution"
            anchors.centerIn: parent
            text: surface.tiles ? surface.tiles.attribution : "© OpenStreetMap contributors"
            color: Theme.textSecondary
            font.pointSize: Theme.fontCaption * 0.9
            Accessible.role: Accessible.Link
            Accessible.name: text
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: Qt.openUrlExternally("https://www.openstreetmap.org/copyright")
            }
        }
    }
}
