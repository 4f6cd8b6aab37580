// The Map tab: the map of located records comes with the map's own screens;
// until then the tab says what it will show.
import QtQuick
import QtQuick.Layouts
import Lumeo.Core

Item {
    objectName: "mapTab"
    property bool wide: false
    Placeholder {
        anchors.fill: parent
        iconName: "map"
        title: L10n.tr("Map")
        text: L10n.tr("Here you will see where you recorded your moods: records with a place, as pins in their level's colour, grouped where they crowd.")
    }
}
