// The place of a record in degrees. Until the map comes to the desktop app,
// the place is typed as latitude and longitude.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: dialog
    objectName: "placeDialog"
    modal: true
    anchors.centerIn: parent
    width: Math.min(parent ? parent.width - 32 : 400, 400)
    padding: 20
    property string error: ""

    function openAt(latitude, longitude) {
        latitudeField.text = latitude === -1 ? "" : latitude.toFixed(5)
        longitudeField.text = longitude === -1 ? "" : longitude.toFixed(5)
        error = ""
        open()
        latitudeField.forceActiveFocus()
    }
    function accept() {
        var lat = Number(latitudeField.text.replace(",", "."))
        var lon = Number(longitudeField.text.replace(",", "."))
        if (latitudeField.text === "" || longitudeField.text === "" || isNaN(lat) || isNaN(lon)
                || !Editor.placeChosen(lat, lon)) {
            error = L10n.tr("A latitude lies from -90 to 90 and a longitude from -180 to 180 degrees.")
            return
        }
        close()
    }

    background: Card {}
    contentItem: ColumnLayout {
        spacing: 10
        Text {
            text: L10n.tr("Place")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }
        TextField {
            id: latitudeField
            objectName: "placeLatitude"
            Layout.fillWidth: true
            placeholderText: L10n.tr("Latitude, e.g. 52.52")
            Accessible.name: L10n.tr("Latitude")
            onAccepted: dialog.accept()
        }
        TextField {
            id: longitudeField
            objectName: "placeLongitude"
            Layout.fillWidth: true
            placeholderText: L10n.tr("Longitude, e.g. 13.40")
            Accessible.name: L10n.tr("Longitude")
            onAccepted: dialog.accept()
        }
        Text {
            Layout.fillWidth: true
            visible: dialog.error !== ""
            text: dialog.error
            color: Theme.danger
            wrapMode: Text.Wrap
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            Button { text: L10n.tr("Cancel"); onClicked: dialog.close() }
            Button { objectName: "placeDone"; text: L10n.tr("Done"); onClicked: dialog.accept() }
        }
    }
}
