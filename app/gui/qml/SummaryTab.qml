// The Summary tab. Its own screens are being built; until then it says
// what it will show.
import QtQuick
import QtQuick.Layouts
import Lumeo.Core

Item {
    objectName: "summaryTab"
    property bool wide: false
    Placeholder {
        anchors.fill: parent
        iconName: "summary"
        title: L10n.tr("Summary")
        text: L10n.tr("Averages, trend and cycle charts, and the tags that go with your best and worst moods.")
    }
}
