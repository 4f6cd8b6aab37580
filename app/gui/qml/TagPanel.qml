// The tag panel: renames a tag, or gives it a unit, in every record of the
// journal, or deletes it. The unit buttons fill the unit field.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: panel
    objectName: "tagPanel"
    modal: true
    closePolicy: Popup.CloseOnEscape
    anchors.centerIn: parent
    width: Math.min(parent ? parent.width - 32 : 440, 440)
    padding: 20
    property alias nameField: nameField
    property alias unitField: unitField
    onAboutToShow: {
        nameField.text = Editor.tagPanelName
        unitField.text = Editor.tagPanelUnit
        nameField.forceActiveFocus()
    }
    onClosed: if (Editor.tagPanelVisible) Editor.tagPanelCancel()
    Connections {
        target: Editor
        function onTagUnitFieldSet(unit) { unitField.text = unit }
    }

    background: Card {}
    contentItem: ColumnLayout {
        spacing: 10
        Text {
            text: L10n.tr("Tag")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }
        TextField {
            id: nameField
            objectName: "tagName"
            Layout.fillWidth: true
            Accessible.name: L10n.tr("Tag name")
            onAccepted: Editor.tagPanelDone(nameField.text, unitField.text)
        }
        TextField {
            id: unitField
            objectName: "tagUnit"
            Layout.fillWidth: true
            placeholderText: L10n.tr("Unit")
            Accessible.name: L10n.tr("Unit")
            onAccepted: Editor.tagPanelDone(nameField.text, unitField.text)
        }
        Flow {
            Layout.fillWidth: true
            spacing: 6
            Repeater {
                model: Editor.tagUnitButtons
                ChipButton {
                    objectName: "tagUnitButton" + index
                    text: modelData
                    onClicked: Editor.tagUnitButton(index)
                }
            }
        }
        RowLayout {
            Layout.fillWidth: true
            Button {
                objectName: "tagDelete"
                text: L10n.tr("Delete")
                contentItem: Text { text: parent.text; color: Theme.danger; font.pointSize: Theme.fontBase }
                onClicked: Editor.tagPanelDelete()
            }
            Item { Layout.fillWidth: true }
            Button { objectName: "tagCancel"; text: L10n.tr("Cancel"); onClicked: Editor.tagPanelCancel() }
            Button { objectName: "tagDone"; text: L10n.tr("Done"); onClicked: Editor.tagPanelDone(nameField.text, unitField.text) }
        }
    }
}
