// The template: the text every new record's comment starts with. Tags are
// offered as they are typed, the journal's most used first and then the
// feeling words no record has used yet; a tag with a unit gets it after
// ":". Back (or Escape) keeps the text as the template.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "templateScreen"
    property string className
    property bool wide: false
    property bool syncing: false

    Keys.onEscapePressed: TemplateEditor.back()

    function focusText() { area.forceActiveFocus() }
    function takeControllerText(text, cursor) {
        syncing = true
        area.text = text
        area.cursorPosition = Math.min(cursor, area.length)
        syncing = false
    }
    Connections {
        target: TemplateEditor
        function onTextReplaced(text, cursor) { screen.takeControllerText(text, cursor) }
    }
    Component.onCompleted: {
        TemplateEditor.open()
        takeControllerText(TemplateEditor.text, TemplateEditor.controllerCursor())
        area.forceActiveFocus()
    }

    Rectangle {
        anchors.fill: parent
        color: screen.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent }
    }

    Rectangle {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.margins: screen.wide ? 32 : 0
        width: screen.wide ? Math.min(parent.width - 64, 720) : parent.width
        radius: screen.wide ? Theme.radius : 0
        color: Theme.background
        clip: true

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                RoundButton {
                    objectName: "templateBack"
                    flat: true
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: TemplateEditor.back()
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Template")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
            }

            Text {
                Layout.fillWidth: true
                text: L10n.tr("Every new record starts with this text. Tags in it become the record's tags when it is saved.")
                wrapMode: Text.WordWrap
                color: Theme.textSecondary
                font.pointSize: Theme.fontBase
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: Math.max(180, area.implicitHeight + 24)
                Layout.maximumHeight: Math.max(180, screen.height * 0.5)
                clip: true
                Flickable {
                    id: flick
                    anchors.fill: parent
                    anchors.margins: 4
                    contentHeight: area.implicitHeight
                    clip: true
                    boundsBehavior: Flickable.StopAtBounds
                    TextArea.flickable: TextArea {
                        id: area
                        objectName: "templateText"
                        wrapMode: TextEdit.Wrap
                        placeholderText: TemplateEditor.placeholder
                        placeholderTextColor: Theme.textSecondary
                        color: Theme.text
                        selectionColor: Theme.focus
                        font.pointSize: Theme.fontTitle
                        background: null
                        Accessible.name: L10n.tr("Template")
                        Keys.onEscapePressed: TemplateEditor.back()
                        onTextChanged: {
                            if (!screen.syncing)
                                TemplateEditor.textEdited(text, cursorPosition)
                        }
                        onCursorPositionChanged: {
                            if (!screen.syncing)
                                TemplateEditor.selectionChanged(selectionStart, selectionEnd)
                        }
                    }
                }
            }

            // Offers for the tag being typed.
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 6
                visible: TemplateEditor.completions.length > 0
                Text {
                    text: L10n.tr("Suggestions")
                    color: Theme.textSecondary
                    font.pointSize: Theme.fontCaption
                }
                Flow {
                    objectName: "templateCompletions"
                    Layout.fillWidth: true
                    spacing: 6
                    Repeater {
                        model: TemplateEditor.completions
                        ChipButton {
                            objectName: "templateCompletion" + index
                            text: "#" + modelData.name
                            // Feeling words that are no tag yet read softer.
                            subtle: modelData.suggestion
                            Accessible.description: modelData.suggestion ? L10n.tr("Suggested tag")
                                                                         : L10n.format("Used %@ times", [modelData.frequency])
                            onClicked: {
                                // Taking the offer ends this button: focus first.
                                screen.focusText()
                                TemplateEditor.chooseCompletion(index)
                            }
                        }
                    }
                }
            }

            Item { Layout.fillHeight: true }
        }
    }
}
