// The lock settings ("Pass Code" in the settings menu): one row per action
// or switch, in the order the lock's controller gives. Enable, disable and
// change open the passcode entry over this screen; the recovery key asks
// for the key in an alert. Escape or Back returns to the menu.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "lockSettingsScreen"
    property string className
    property bool wide: false

    Component.onCompleted: {
        LockSettings.appear()
        list.forceActiveFocus()
    }
    Keys.onEscapePressed: Shell.closeScreen(className)

    // Back from an entry screen or an alert: the rows may have changed.
    Connections {
        target: Shell
        function onChanged() { LockSettings.appear() }
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

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                RoundButton {
                    objectName: "lockSettingsBack"
                    flat: true
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: Shell.closeScreen(screen.className)
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Pass Code")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            Text {
                Layout.fillWidth: true
                text: LockSettings.passcodeSet
                      ? L10n.tr("History, Summary, Map and the settings ask for the passcode. Capture stays open.")
                      : L10n.tr("Keep your journal from other eyes with a four-digit passcode. Capture stays open.")
                color: Theme.textSecondary
                wrapMode: Text.Wrap
                font.pointSize: Theme.fontCaption
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: list.contentHeight + 8
                clip: true
                ListView {
                    id: list
                    objectName: "lockSettingsRows"
                    anchors.fill: parent
                    anchors.margins: 4
                    interactive: false
                    model: LockSettings.rows
                    keyNavigationEnabled: true
                    focus: true
                    delegate: AbstractButton {
                        id: row
                        objectName: "lockRow_" + modelData.key
                        width: ListView.view.width
                        height: 52
                        enabled: modelData.enabled
                        focusPolicy: Qt.StrongFocus
                        Accessible.role: modelData.hasSwitch ? Accessible.CheckBox : Accessible.Button
                        Accessible.name: modelData.label
                        Accessible.checked: modelData.switchOn
                        onClicked: {
                            if (modelData.hasSwitch)
                                LockSettings.setSwitch(modelData.key, !modelData.switchOn)
                            else
                                LockSettings.selectRow(modelData.key)
                        }
                        Keys.onReturnPressed: clicked()
                        Keys.onEnterPressed: clicked()
                        Keys.onSpacePressed: clicked()
                        background: Rectangle {
                            radius: 10
                            color: row.down ? Theme.separator
                                            : (row.hovered || (row.ListView.isCurrentItem && list.activeFocus)
                                               ? Theme.surfaceAlt : "transparent")
                            border.width: row.visualFocus ? 2 : 0
                            border.color: Theme.focus
                        }
                        contentItem: Item {
                            RowLayout {
                                anchors.fill: parent
                                anchors.leftMargin: 12
                                anchors.rightMargin: 12
                                spacing: 14
                                Text {
                                    Layout.fillWidth: true
                                    text: modelData.label
                                    color: modelData.key === "kDisablePasscodeRow" ? Theme.danger
                                           : (row.enabled ? Theme.text : Theme.textSecondary)
                                    font.pointSize: Theme.fontBase
                                    fontSizeMode: Text.HorizontalFit
                                    minimumPointSize: Math.max(6, Theme.fontBase - 6)
                                    elide: Text.ElideRight
                                }
                                Switch {
                                    // On in the accent colour, off in the separator's, on either theme.
                                    palette.dark: Theme.accent
                                    palette.midlight: Theme.separator
                                    objectName: "lockSwitch_" + modelData.key
                                    visible: modelData.hasSwitch
                                    checked: modelData.switchOn
                                    focusPolicy: Qt.NoFocus
                                    Accessible.ignored: true
                                    // The row owns the click; the switch only shows the state.
                                    onToggled: {
                                        checked = Qt.binding(function () { return modelData.switchOn })
                                        row.clicked()
                                    }
                                }
                                Icon {
                                    visible: !modelData.hasSwitch
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

            Item { Layout.fillHeight: true }
        }
    }
}
