// The sound of the reminder being edited: one row per sound, a check at
// the chosen one. Choosing a row takes it at once and plays it, except
// "Default", the desktop's own notification sound.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

ReminderScreenFrame {
    id: screen
    objectName: "reminderSoundScreen"
    property string className
    title: L10n.tr("Sound")
    backName: "reminderSoundBack"
    onBack: ReminderEditor.closeSounds()

    Component.onCompleted: list.forceActiveFocus()

    Card {
        anchors.fill: parent
        clip: true
        ListView {
            id: list
            objectName: "reminderSounds"
            anchors.fill: parent
            anchors.margins: 4
            model: ReminderEditor.sounds
            keyNavigationEnabled: true
            focus: true
            boundsBehavior: Flickable.StopAtBounds
            delegate: AbstractButton {
                id: row
                objectName: "reminderSound" + index
                width: ListView.view.width
                height: 46
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.RadioButton
                Accessible.name: modelData.title
                Accessible.checked: modelData.checked
                onClicked: ReminderEditor.selectSound(index)
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
                        Text {
                            Layout.fillWidth: true
                            text: modelData.title
                            color: Theme.text
                            font.pointSize: Theme.fontBase
                        }
                        Text {
                            visible: index === 0
                            text: L10n.tr("desktop sound")
                            color: Theme.textSecondary
                            font.pointSize: Theme.fontCaption
                        }
                        Icon {
                            objectName: "reminderSoundCheck" + index
                            visible: modelData.checked
                            name: "check"
                            size: 20
                            color: Theme.accent
                        }
                    }
                }
            }
        }
    }
}
