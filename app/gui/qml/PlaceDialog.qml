// The editor's place chooser: a map that opens at the record's place (or
// where you are), a search for places that runs when you press Enter, and
// the cross in the middle: a click on the map brings that point under the
// cross, and "Done" takes the place under it.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Templates as T
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: dialog
    objectName: "placeDialog"
    modal: true
    focus: true
    anchors.centerIn: T.Overlay.overlay
    width: parent ? Math.min(parent.width - 24, 720) : 600
    height: parent ? Math.min(parent.height - 24, 640) : 560
    padding: 12
    closePolicy: Popup.CloseOnEscape
    property string error: ""
    readonly property var viewport: PlaceChooser.viewport

    function openAt(latitude, longitude) {
        error = ""
        searchField.text = ""
        open()
        PlaceChooser.begin(latitude, longitude)
        searchField.forceActiveFocus()
    }
    function accept() {
        if (!PlaceChooser.done()) {
            error = L10n.tr("This place cannot be chosen.")
            return
        }
        close()
    }
    onClosed: PlaceChooser.cancel()

    Connections {
        target: PlaceChooser
        function onChosen(latitude, longitude) {
            if (!Editor.placeChosen(latitude, longitude))
                dialog.error = L10n.tr("A latitude lies from -90 to 90 and a longitude from -180 to 180 degrees.")
        }
    }

    background: Card {}
    contentItem: ColumnLayout {
        spacing: 10
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            Text {
                text: L10n.tr("Place")
                color: Theme.text
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
            }
            TextField {
                id: searchField
                objectName: "placeSearch"
                Layout.fillWidth: true
                placeholderText: PlaceChooser.placeholder
                Accessible.name: PlaceChooser.placeholder
                // Searching runs on Enter, never on each keystroke.
                onAccepted: PlaceChooser.search(text)
            }
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            MapSurface {
                id: map
                objectName: "placeMap"
                anchors.fill: parent
                viewport: PlaceChooser.viewport
                tiles: PlaceChooser.tiles
                onClickedAt: function (x, y) { PlaceChooser.pick(x, y) }

                // The cross: what is under it is the place chosen.
                Item {
                    objectName: "placeCross"
                    anchors.centerIn: parent
                    width: 36
                    height: 36
                    Icon {
                        anchors.horizontalCenter: parent.horizontalCenter
                        anchors.bottom: parent.verticalCenter
                        name: "place"
                        color: Theme.danger
                        size: 32
                        lineWidth: 2.4
                    }
                    Rectangle {
                        anchors.centerIn: parent
                        width: 6
                        height: 6
                        radius: 3
                        color: Theme.danger
                    }
                }
            }

            // The search's results over the map.
            Rectangle {
                objectName: "placeResults"
                visible: PlaceChooser.resultsShown || PlaceChooser.searching || PlaceChooser.searchError !== ""
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.top: parent.top
                anchors.margins: 8
                height: Math.min(resultList.contentHeight + 16, parent.height * 0.6)
                        + (statusText.visible ? statusText.implicitHeight + 8 : 0)
                radius: 8
                color: Theme.surface
                border.color: Theme.separator
                Text {
                    id: statusText
                    objectName: "placeSearchStatus"
                    visible: text !== ""
                    anchors.left: parent.left
                    anchors.right: parent.right
                    anchors.top: parent.top
                    anchors.margins: 8
                    wrapMode: Text.Wrap
                    color: PlaceChooser.searchError !== "" ? Theme.danger : Theme.textSecondary
                    text: PlaceChooser.searchError !== "" ? PlaceChooser.searchError
                          : (PlaceChooser.searching ? L10n.tr("Searching…")
                             : (PlaceChooser.results.length === 0 ? L10n.tr("No place found.") : ""))
                }
                ListView {
                    id: resultList
                    objectName: "placeResultList"
                    anchors.fill: parent
                    anchors.margins: 8
                    anchors.topMargin: statusText.visible ? statusText.implicitHeight + 16 : 8
                    clip: true
                    model: PlaceChooser.results
                    delegate: ItemDelegate {
                        objectName: "placeResult" + index
                        width: resultList.width
                        text: modelData.displayName
                        palette.text: Theme.text
                        palette.windowText: Theme.text
                        onClicked: PlaceChooser.selectResult(index)
                    }
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            Text {
                objectName: "placeCenter"
                Layout.fillWidth: true
                text: dialog.viewport ? dialog.viewport.centerLatitude.toFixed(5) + ", "
                                        + dialog.viewport.centerLongitude.toFixed(5) : ""
                color: Theme.textSecondary
                font.pointSize: Theme.fontCaption
                Accessible.name: L10n.tr("Chosen place") + " " + text
            }
            Text {
                visible: dialog.error !== ""
                text: dialog.error
                color: Theme.danger
            }
            Button { objectName: "placeCancel"; text: L10n.tr("Cancel"); onClicked: dialog.close() }
            Button { objectName: "placeDone"; text: L10n.tr("Done"); onClicked: dialog.accept() }
        }
    }
}
