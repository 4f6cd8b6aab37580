// The notification message of every reminder without its own text. Each
// change is kept at once; Return (or Done) plans the reminders again with
// it and leaves, Back leaves and the planned ones keep the former text
// until the next change.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

ReminderScreenFrame {
    id: screen
    objectName: "reminderTextScreen"
    property string className
    title: L10n.tr("Notification message")
    actionText: L10n.tr("Done")
    actionName: "reminderTextDone"
    backName: "reminderTextBack"
    onBack: Reminders.textBack()
    onAction: Reminders.textReturn()

    Component.onCompleted: {
        field.text = Reminders.text
        field.forceActiveFocus()
        field.cursorPosition = field.length
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 10
        TextField {
            id: field
            objectName: "reminderTextField"
            Layout.fillWidth: true
            placeholderText: L10n.tr("How are you feeling right now?")
            Accessible.name: L10n.tr("Notification message")
            onTextEdited: Reminders.setText(text)
            Keys.onReturnPressed: Reminders.textReturn()
            Keys.onEnterPressed: Reminders.textReturn()
        }
        Text {
            Layout.fillWidth: true
            text: L10n.tr("Shown by every reminder that has no message of its own.")
            color: Theme.textSecondary
            wrapMode: Text.Wrap
            font.pointSize: Theme.fontCaption
        }
        Item { Layout.fillHeight: true }
    }
}
