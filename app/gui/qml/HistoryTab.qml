// The History tab. Its own screens are being built; until then it says
// what it will show.
import QtQuick
import QtQuick.Layouts
import Lumeo.Core

Item {
    objectName: "historyTab"
    property bool wide: false
    Placeholder {
        anchors.fill: parent
        iconName: "history"
        title: L10n.tr("History")
        text: L10n.tr("Your records by day, with a calendar and a photo gallery.")
    }
}
