// The settings menu: the desktop's appearance, then one row per settings
// screen in the core's order. Escape or Back closes it.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "settingsScreen"
    property string className
    property bool wide: false
    readonly property var icons: ({
        "moods": "moods", "template": "edit", "graphic": "summary", "map": "map",
        "reminders": "bell", "backup": "backup", "syncing": "sync", "lock": "lock",
        "export": "export", "watch": "watch"
    })
    Component.onCompleted: {
        Settings.appear()
        list.forceActiveFocus()
    }
    Keys.onEscapePressed: Shell.closeScreen(className)

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

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                RoundButton {
                    objectName: "settingsBack"
                    flat: true
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: Shell.closeScreen(screen.className)
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Settings")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: appearance.implicitHeight + 24
                RowLayout {
                    id: appearance
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 12
                    Text {
                        Layout.fillWidth: true
                        text: L10n.tr("Appearance")
                        color: Theme.text
                        font.pointSize: Theme.fontBase
                    }
                    Repeater {
                        model: [{ mode: "system", title: L10n.tr("System") },
                                { mode: "light", title: L10n.tr("Light") },
                                { mode: "dark", title: L10n.tr("Dark") }]
                        ChipButton {
                            objectName: "theme_" + modelData.mode
                            text: modelData.title
                            checkable: true
                            checked: Theme.mode === modelData.mode
                            subtle: !checked
                            Accessible.role: Accessible.RadioButton
                            Accessible.checked: checked
                            onClicked: Theme.mode = modelData.mode
                        }
                    }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                ListView {
                    id: list
                    objectName: "settingsRows"
                    anchors.fill: parent
                    anchors.margins: 4
                    model: Settings.rows
                    keyNavigationEnabled: true
                    focus: true
                    boundsBehavior: Flickable.StopAtBounds
                    delegate: AbstractButton {
                        objectName: "settingsRow_" + modelData.key
                        width: ListView.view.width
                        height: modelData.visible ? 52 : 0
                        visible: modelData.visible
                        focusPolicy: Qt.StrongFocus
                        Accessible.role: Accessible.Button
                        Accessible.name: modelData.title
                        onClicked: Settings.selectRow(index)
                        Keys.onReturnPressed: clicked()
                        Keys.onEnterPressed: clicked()
                        background: Rectangle {
                            radius: 10
                            color: parent.down ? Theme.separator
                                               : (parent.hovered || (parent.ListView.isCurrentItem && list.activeFocus)
                                                  ? Theme.surfaceAlt : "transparent")
                            border.width: parent.visualFocus ? 2 : 0
                            border.color: Theme.focus
                        }
                        contentItem: Item {
                            RowLayout {
                                anchors.fill: parent
                                anchors.leftMargin: 12
                                anchors.rightMargin: 12
                                spacing: 14
                                Icon {
                                    name: screen.icons[modelData.image] || "settings"
                                    color: Theme.accent
                                    size: 22
                                }
                                Text {
                                    Layout.fillWidth: true
                                    text: modelData.title
                                    color: Theme.text
                                    font.pointSize: Theme.fontBase
                                }
                                Icon {
                                    name: "back"
                                    rotation: 180
                                    size: 16
                                    color: Theme.textSecondary
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}
