// One reminder: a time of day, or several moments between two times
// (evenly spread or at random); its own message and the text a record
// started from it begins with; its sound; and whether to stay silent when
// something was recorded since the last time. Save turns the reminder on
// and plans the reminders again; Back or Escape leaves it as it was.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

ReminderScreenFrame {
    id: screen
    objectName: "reminderEditorScreen"
    property string className
    title: ReminderEditor.isNew ? L10n.tr("New reminder") : L10n.tr("Reminder")
    actionText: L10n.tr("Save")
    actionName: "reminderSave"
    backName: "reminderCancel"
    onBack: ReminderEditor.cancel()
    onAction: ReminderEditor.save()

    function twoDigits(v) { return (v < 10 ? "0" : "") + v }
    // The controls follow the editor; the user's edits go to it first.
    function sync() {
        hour.value = ReminderEditor.pickerHour
        minute.value = ReminderEditor.pickerMinute
        count.value = ReminderEditor.count
    }

    Component.onCompleted: {
        ReminderEditor.appear()
        reminderText.text = ReminderEditor.reminderText
        templateText.text = ReminderEditor.templateText
        sync()
        periodic.forceActiveFocus()
    }
    Connections {
        target: ReminderEditor
        function onChanged() { screen.sync() }
    }

    Flickable {
        anchors.fill: parent
        contentHeight: form.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        ColumnLayout {
            id: form
            width: parent.width
            spacing: 14

            RowLayout {
                Layout.fillWidth: true
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Several times a day")
                    color: Theme.text
                    font.pointSize: Theme.fontBase
                }
                Switch {
                    // On in the accent colour, off in the separator's, on either theme.
                    palette.dark: Theme.accent
                    palette.midlight: Theme.separator
                    id: periodic
                    objectName: "reminderPeriodic"
                    checked: ReminderEditor.periodic
                    Accessible.name: L10n.tr("Several times a day")
                    onToggled: ReminderEditor.setPeriodic(checked)
                }
            }

            // A window: which end the picker edits.
            RowLayout {
                Layout.fillWidth: true
                visible: ReminderEditor.periodic
                spacing: 10
                ChipButton {
                    objectName: "reminderFrom"
                    text: L10n.format("From %@", [ReminderEditor.fromText])
                    checkable: true
                    checked: ReminderEditor.pickerVisible && ReminderEditor.remindType === 1
                    onClicked: ReminderEditor.editFrom()
                }
                ChipButton {
                    objectName: "reminderTo"
                    text: L10n.format("To %@", [ReminderEditor.toText])
                    checkable: true
                    checked: ReminderEditor.pickerVisible && ReminderEditor.remindType === 2
                    onClicked: ReminderEditor.editTo()
                }
                Item { Layout.fillWidth: true }
            }

            RowLayout {
                objectName: "reminderPicker"
                Layout.fillWidth: true
                visible: ReminderEditor.pickerVisible
                spacing: 8
                Text {
                    text: ReminderEditor.periodic ? (ReminderEditor.remindType === 2 ? L10n.tr("To") : L10n.tr("From"))
                                                  : L10n.tr("Time")
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontBase
                    Layout.preferredWidth: 60
                }
                SpinBox {
                    id: hour
                    objectName: "reminderHour"
                    from: 0
                    to: 23
                    editable: true
                    wrap: true
                    Accessible.name: L10n.tr("Hour")
                    textFromValue: function (v) { return screen.twoDigits(v) }
                    onValueModified: ReminderEditor.setTime(hour.value, minute.value)
                }
                Text { text: ":"; color: Theme.text; font.pointSize: Theme.fontTitle }
                SpinBox {
                    id: minute
                    objectName: "reminderMinute"
                    from: 0
                    to: 59
                    editable: true
                    wrap: true
                    Accessible.name: L10n.tr("Minute")
                    textFromValue: function (v) { return screen.twoDigits(v) }
                    onValueModified: ReminderEditor.setTime(hour.value, minute.value)
                }
                Item { Layout.fillWidth: true }
            }

            RowLayout {
                Layout.fillWidth: true
                visible: ReminderEditor.periodic
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Times a day")
                    color: Theme.text
                    font.pointSize: Theme.fontBase
                }
                SpinBox {
                    id: count
                    objectName: "reminderCount"
                    // The editor's own range.
                    from: ReminderEditor.minimumCount
                    to: ReminderEditor.maximumCount
                    editable: true
                    Accessible.name: L10n.tr("Times a day")
                    onValueModified: ReminderEditor.setCount(value)
                }
            }

            RowLayout {
                Layout.fillWidth: true
                visible: ReminderEditor.periodic
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("At random moments")
                    color: Theme.text
                    font.pointSize: Theme.fontBase
                }
                Switch {
                    // On in the accent colour, off in the separator's, on either theme.
                    palette.dark: Theme.accent
                    palette.midlight: Theme.separator
                    objectName: "reminderRandom"
                    checked: ReminderEditor.random
                    Accessible.name: L10n.tr("At random moments")
                    onToggled: ReminderEditor.setRandom(checked)
                }
            }

            TextField {
                id: reminderText
                objectName: "reminderTextField"
                Layout.fillWidth: true
                placeholderText: L10n.tr("Enter your reminder message")
                Accessible.name: L10n.tr("Enter your reminder message")
                onTextEdited: ReminderEditor.setReminderText(text)
                Keys.onReturnPressed: templateText.forceActiveFocus()
                Keys.onEnterPressed: templateText.forceActiveFocus()
            }
            TextField {
                id: templateText
                objectName: "reminderTemplateField"
                Layout.fillWidth: true
                placeholderText: L10n.tr("Create your template for this reminder")
                Accessible.name: L10n.tr("Create your template for this reminder")
                onTextEdited: ReminderEditor.setTemplateText(text)
                Keys.onReturnPressed: focus = false
                Keys.onEnterPressed: focus = false
            }

            AbstractButton {
                id: soundRow
                objectName: "reminderSoundRow"
                Layout.fillWidth: true
                implicitHeight: 48
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: L10n.tr("Sound") + ": " + ReminderEditor.soundName
                onClicked: ReminderEditor.openSounds()
                Keys.onReturnPressed: clicked()
                Keys.onEnterPressed: clicked()
                background: Rectangle {
                    radius: 10
                    color: soundRow.down ? Theme.separator : (soundRow.hovered ? Theme.surfaceAlt : Theme.surface)
                    border.width: soundRow.visualFocus ? 2 : 1
                    border.color: soundRow.visualFocus ? Theme.focus : Theme.separator
                }
                contentItem: Item {
                    RowLayout {
                        anchors.fill: parent
                        anchors.leftMargin: 12
                        anchors.rightMargin: 12
                        Text {
                            Layout.fillWidth: true
                            text: L10n.tr("Sound")
                            color: Theme.text
                            font.pointSize: Theme.fontBase
                        }
                        Text {
                            objectName: "reminderSoundName"
                            text: ReminderEditor.soundName
                            color: Theme.textSecondary
                            font.pointSize: Theme.fontBase
                        }
                        Icon { name: "back"; rotation: 180; size: 16; color: Theme.textSecondary }
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Only if nothing was recorded since the last reminder")
                    color: Theme.text
                    wrapMode: Text.Wrap
                    font.pointSize: Theme.fontBase
                }
                Switch {
                    // On in the accent colour, off in the separator's, on either theme.
                    palette.dark: Theme.accent
                    palette.midlight: Theme.separator
                    objectName: "reminderOnlyIfNothing"
                    checked: ReminderEditor.onlyIfNothingRecorded
                    Accessible.name: L10n.tr("Only if nothing was recorded since the last reminder")
                    onToggled: ReminderEditor.setOnlyIfNothingRecorded(checked)
                }
            }
        }
    }
}
