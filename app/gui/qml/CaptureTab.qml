// The capture tab: ten level tiles, level 10 on top. A click, Enter on a
// focused tile, or the digits 1–9 and 0 (for 10) record the level and open
// the editor. Each tile shows its number and text, never colour alone.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: tab
    objectName: "captureTab"
    property bool wide: false

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: tab.wide ? 32 : 16
        anchors.topMargin: tab.wide ? 32 : 4
        spacing: 12

        Text {
            Layout.fillWidth: true
            Layout.maximumWidth: 720
            Layout.alignment: Qt.AlignHCenter
            text: L10n.tr("How are you feeling right now?")
            color: Theme.text
            font.pointSize: tab.wide ? Theme.fontHeadline : Theme.fontTitle
            font.weight: Font.DemiBold
            wrapMode: Text.Wrap
            Accessible.role: Accessible.Heading
        }

        // An empty journal: the way to look around before recording.
        Card {
            objectName: "sampleDataCard"
            visible: Shell.journalEmpty && !appSampleJournal
            Layout.fillWidth: true
            Layout.maximumWidth: 720
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredHeight: sampleRow.implicitHeight + 24
            RowLayout {
                id: sampleRow
                anchors.fill: parent
                anchors.margins: 12
                spacing: 12
                Icon { name: "sparkle"; color: Theme.accent }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Your journal is empty. Record your first mood below, or look around a journal of sample records first.")
                    color: Theme.textSecondary
                    wrapMode: Text.Wrap
                    font.pointSize: Theme.fontCaption
                }
                Button {
                    objectName: "exploreSampleData"
                    text: L10n.tr("Explore with sample data")
                    onClicked: Shell.exploreSampleData()
                }
            }
        }

        ListView {
            id: tiles
            objectName: "levelTiles"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.maximumWidth: 720
            Layout.alignment: Qt.AlignHCenter
            model: Capture.tiles
            spacing: 6
            interactive: contentHeight > height
            focus: true
            keyNavigationEnabled: true
            Accessible.role: Accessible.List
            Accessible.name: L10n.tr("Mood levels")
            readonly property real tileHeight: Math.max(44, (height - spacing * 9) / 10)

            delegate: AbstractButton {
                id: tile
                objectName: "levelTile" + model.level
                width: ListView.view.width
                height: ListView.view.tileHeight
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: model.level + ", " + model.text
                Accessible.description: L10n.tr("Record this mood")
                onClicked: Capture.chooseLevel(model.level)
                Keys.onReturnPressed: clicked()
                Keys.onEnterPressed: clicked()
                Keys.onSpacePressed: clicked()

                background: Rectangle {
                    radius: Math.min(Theme.radius, tile.height / 2)
                    color: model.tileColor
                    border.width: tile.visualFocus || (tile.ListView.isCurrentItem && tiles.activeFocus) ? 3 : 0
                    border.color: Theme.focus
                    Rectangle {
                        anchors.fill: parent
                        radius: parent.radius
                        color: "white"
                        opacity: tile.down ? 0.25 : (tile.hovered ? 0.12 : 0)
                    }
                }
                contentItem: Item {
                    RowLayout {
                        anchors.fill: parent
                        anchors.leftMargin: 14
                        anchors.rightMargin: 14
                        spacing: 14
                        Rectangle {
                            Layout.preferredWidth: Math.min(36, tile.height - 10)
                            Layout.preferredHeight: Layout.preferredWidth
                            radius: width / 2
                            color: Qt.rgba(1, 1, 1, 0.28)
                            Text {
                                anchors.centerIn: parent
                                text: model.level
                                color: model.textColor
                                font.pointSize: Theme.fontBase
                                font.weight: Font.Bold
                            }
                        }
                        Text {
                            Layout.fillWidth: true
                            text: model.text
                            color: model.textColor
                            font.pointSize: Theme.fontTitle
                            font.weight: Font.Medium
                            elide: Text.ElideRight
                        }
                        // The key that chooses this level.
                        Rectangle {
                            visible: tile.width > 300
                            Layout.preferredWidth: 26
                            Layout.preferredHeight: 24
                            radius: 6
                            color: "transparent"
                            border.width: 1
                            border.color: Qt.rgba(model.textColor.r, model.textColor.g, model.textColor.b, 0.5)
                            Accessible.ignored: true
                            Text {
                                anchors.centerIn: parent
                                text: model.shortcut
                                color: model.textColor
                                opacity: 0.85
                                font.pointSize: Theme.fontCaption
                            }
                        }
                    }
                }
            }
        }
    }
    Component.onCompleted: Capture.appear()
}
