// The reminders: the notification message on top, then one row per
// reminder with its switch, its time and how often it comes, an edit and
// a delete button. Add opens the editor on a new reminder. Leaving the
// screen (Back or Escape) keeps the list as it stands and plans the
// reminders again, as the list's Done does.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

ReminderScreenFrame {
    id: screen
    objectName: "reminderListScreen"
    property string className
    title: L10n.tr("Reminders")
    actionText: L10n.tr("Add")
    actionName: "reminderAdd"
    backName: "reminderListBack"
    onBack: Reminders.done()
    onAction: Reminders.add()

    Component.onCompleted: {
        Reminders.appear()
        messageRow.forceActiveFocus()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 12

        Card {
            Layout.fillWidth: true
            Layout.preferredHeight: messageRow.implicitHeight + 8
            AbstractButton {
                id: messageRow
                objectName: "reminderMessageRow"
                anchors.fill: parent
                anchors.margins: 4
                implicitHeight: messageColumn.implicitHeight + 20
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: L10n.tr("Notification message") + ": " + Reminders.message
                onClicked: Reminders.openText()
                Keys.onReturnPressed: clicked()
                Keys.onEnterPressed: clicked()
                background: Rectangle {
                    radius: 10
                    color: messageRow.down ? Theme.separator : (messageRow.hovered ? Theme.surfaceAlt : "transparent")
                    border.width: messageRow.visualFocus ? 2 : 0
                    border.color: Theme.focus
                }
                contentItem: Item {
                    RowLayout {
                        anchors.fill: parent
                        anchors.leftMargin: 12
                        anchors.rightMargin: 12
                        spacing: 12
                        Icon { name: "bell"; color: Theme.accent; size: 22 }
                        ColumnLayout {
                            id: messageColumn
                            Layout.fillWidth: true
                            spacing: 2
                            Text {
                                text: L10n.tr("Notification message")
                                color: Theme.text
                                font.pointSize: Theme.fontBase
                            }
                            Text {
                                objectName: "reminderMessage"
                                Layout.fillWidth: true
                                text: Reminders.message
                                color: Theme.textSecondary
                                elide: Text.ElideRight
                                font.pointSize: Theme.fontCaption
                            }
                        }
                        Icon { name: "back"; rotation: 180; size: 16; color: Theme.textSecondary }
                    }
                }
            }
        }

        Card {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true

            Text {
                objectName: "reminderEmpty"
                anchors.centerIn: parent
                width: parent.width - 48
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: L10n.tr("No reminders. Add one to be asked how you feel.")
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
                opacity: Reminders.empty ? 1 : 0
                visible: opacity > 0
                Behavior on opacity { NumberAnimation { duration: 200 } }
            }

            ListView {
                id: list
                objectName: "reminderRows"
                anchors.fill: parent
                anchors.margins: 4
                model: Reminders.rows
                boundsBehavior: Flickable.StopAtBounds
                spacing: 2
                delegate: Item {
                    id: row
                    objectName: "reminderRow" + index
                    width: ListView.view.width
                    height: 60
                    Rectangle {
                        anchors.fill: parent
                        radius: 10
                        color: rowMouse.containsMouse ? Theme.surfaceAlt : "transparent"
                    }
                    MouseArea {
                        id: rowMouse
                        anchors.fill: parent
                        hoverEnabled: true
                        onClicked: Reminders.edit(index)
                    }
                    RowLayout {
                        anchors.fill: parent
                        anchors.leftMargin: 8
                        anchors.rightMargin: 4
                        spacing: 10
                        Switch {
                            // On in the accent colour, off in the separator's, on either theme.
                            palette.dark: Theme.accent
                            palette.midlight: Theme.separator
                            objectName: "reminderSwitch" + index
                            checked: modelData.on
                            Accessible.name: L10n.format("Reminder at %@", [modelData.timeText])
                            onToggled: Reminders.setEnabled(index, checked)
                        }
                        ColumnLayout {
                            Layout.fillWidth: true
                            spacing: 0
                            Text {
                                objectName: "reminderTime" + index
                                Layout.fillWidth: true
                                text: modelData.timeText
                                // A reminder that is off keeps its times in the list's muted brown.
                                color: modelData.dimmed ? Qt.rgba(0.5765, 0.5137, 0.4118, 1) : Theme.text
                                font.pointSize: Theme.fontTitle
                                elide: Text.ElideRight
                            }
                            Text {
                                Layout.fillWidth: true
                                visible: text !== ""
                                text: modelData.detail
                                color: Theme.textSecondary
                                font.pointSize: Theme.fontCaption
                                elide: Text.ElideRight
                            }
                        }
                        RoundButton {
                            objectName: "reminderEdit" + index
                            flat: true
                            Accessible.name: L10n.format("Edit the reminder at %@", [modelData.timeText])
                            contentItem: Icon { name: "edit"; color: Theme.textSecondary; size: 20 }
                            onClicked: Reminders.edit(index)
                        }
                        RoundButton {
                            objectName: "reminderDelete" + index
                            flat: true
                            Accessible.name: L10n.format("Delete the reminder at %@", [modelData.timeText])
                            contentItem: Icon { name: "close"; color: Theme.danger; size: 20 }
                            onClicked: Reminders.remove(index)
                        }
                    }
                }
            }
        }
    }
}
