// The map's settings: how new records get their place ("Auto" from where
// you are, or "Manual"), deleting the place of every record (after the
// core's question), and the server the map's tiles come from.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "mapSettingsScreen"
    property string className
    property bool wide: false
    property string tileError: ""
    Keys.onEscapePressed: Shell.closeScreen(className)
    Component.onCompleted: autoRow.forceActiveFocus()

    function title(key) {
        var rows = MapSettings.rows
        for (var i = 0; i < rows.length; ++i)
            if (rows[i].key === key)
                return rows[i].title
        return ""
    }

    Rectangle {
        anchors.fill: parent
        color: screen.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent; onClicked: if (screen.wide) Shell.closeScreen(screen.className) }
    }

    Rectangle {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.margins: screen.wide ? 32 : 0
        width: screen.wide ? Math.min(parent.width - 64, 560) : parent.width
        radius: screen.wide ? Theme.radius : 0
        color: Theme.background
        MouseArea { anchors.fill: parent }

        Flickable {
            anchors.fill: parent
            anchors.margins: 16
            contentHeight: column.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds

            ColumnLayout {
                id: column
                width: parent.width
                spacing: 12

                RowLayout {
                    Layout.fillWidth: true
                    RoundButton {
                        objectName: "mapSettingsBack"
                        flat: true
                        Accessible.name: L10n.tr("Back")
                        contentItem: Icon { name: "back"; color: Theme.text }
                        onClicked: Shell.closeScreen(screen.className)
                    }
                    Text {
                        Layout.fillWidth: true
                        text: L10n.tr("Location")
                        color: Theme.text
                        font.pointSize: Theme.fontHeadline
                        font.weight: Font.DemiBold
                        Accessible.role: Accessible.Heading
                    }
                }

                // How new records get their place.
                Text {
                    text: screen.title("kMapTitle")
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontCaption
                    font.letterSpacing: 1
                }
                Card {
                    Layout.fillWidth: true
                    Layout.preferredHeight: modes.implicitHeight + 16
                    ColumnLayout {
                        id: modes
                        anchors.fill: parent
                        anchors.margins: 8
                        spacing: 0
                        RadioDelegate {
                            id: autoRow
                            objectName: "mapSettingsAuto"
                            Layout.fillWidth: true
                            text: screen.title("kMapAuto")
                            checked: MapSettings.automatic
                            palette.text: Theme.text
                            palette.windowText: Theme.text
                            onClicked: MapSettings.chooseAutomatic()
                        }
                        RadioDelegate {
                            objectName: "mapSettingsManual"
                            Layout.fillWidth: true
                            text: screen.title("kMapManual")
                            checked: !MapSettings.automatic
                            palette.text: Theme.text
                            palette.windowText: Theme.text
                            onClicked: MapSettings.chooseManual()
                        }
                    }
                }

                // Deleting every place.
                Card {
                    Layout.fillWidth: true
                    Layout.preferredHeight: deleteColumn.implicitHeight + 24
                    ColumnLayout {
                        id: deleteColumn
                        anchors.fill: parent
                        anchors.margins: 12
                        spacing: 6
                        Button {
                            objectName: "mapSettingsDelete"
                            text: screen.title("kMapDelete")
                            palette.buttonText: Theme.danger
                            onClicked: MapSettings.deleteGeolocation()
                        }
                        Text {
                            Layout.fillWidth: true
                            text: screen.title("kMapDeleteDescription")
                            color: Theme.textSecondary
                            wrapMode: Text.Wrap
                            font.pointSize: Theme.fontCaption
                        }
                    }
                }

                // Where the map's pictures come from.
                Text {
                    text: L10n.tr("MAP TILES")
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontCaption
                    font.letterSpacing: 1
                }
                Card {
                    Layout.fillWidth: true
                    Layout.preferredHeight: tileColumn.implicitHeight + 24
                    ColumnLayout {
                        id: tileColumn
                        anchors.fill: parent
                        anchors.margins: 12
                        spacing: 8
                        TextField {
                            id: tileField
                            objectName: "mapSettingsTileUrl"
                            Layout.fillWidth: true
                            text: MapSettings.tileTemplate
                            enabled: !MapSettings.tileTemplateFromEnvironment
                            Accessible.name: L10n.tr("Tile server")
                            onAccepted: saveTiles.clicked()
                        }
                        Text {
                            Layout.fillWidth: true
                            text: MapSettings.tileTemplateFromEnvironment
                                  ? L10n.tr("Set by LUMEO_TILE_URL for this run.")
                                  : L10n.tr("A server of map tiles with {z}, {x} and {y} in its address. Tiles are kept in your cache folder.")
                            color: Theme.textSecondary
                            wrapMode: Text.Wrap
                            font.pointSize: Theme.fontCaption
                        }
                        Text {
                            Layout.fillWidth: true
                            objectName: "mapSettingsTileError"
                            visible: screen.tileError !== ""
                            text: screen.tileError
                            color: Theme.danger
                            wrapMode: Text.Wrap
                        }
                        RowLayout {
                            Layout.alignment: Qt.AlignRight
                            enabled: !MapSettings.tileTemplateFromEnvironment
                            Button {
                                objectName: "mapSettingsTileReset"
                                text: L10n.tr("OpenStreetMap")
                                onClicked: {
                                    screen.tileError = MapSettings.setTileTemplate("")
                                    tileField.text = MapSettings.tileTemplate
                                }
                            }
                            Button {
                                id: saveTiles
                                objectName: "mapSettingsTileSave"
                                text: L10n.tr("Use")
                                onClicked: screen.tileError = MapSettings.setTileTemplate(tileField.text)
                            }
                        }
                    }
                }
            }
        }
    }
}
