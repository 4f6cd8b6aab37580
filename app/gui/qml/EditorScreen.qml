// The record editor over the tabs: the level as a coloured band, the date,
// the comment with tag offers as you type, the tags of the comment (a click
// opens the tag panel: rename or delete a tag in the whole journal), the
// photo and the place. Save keeps the record; Cancel asks, then removes a new
// record or restores an edited one. Escape is Cancel, Ctrl+Return Save.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "editorScreen"
    property string className
    property bool wide: false
    readonly property color levelColor: Theme.levelColor(Editor.level)
    readonly property color onLevel: Theme.levelTextColor(Editor.level)
    property bool syncing: false
    property alias tagPanel: tagPanel
    property alias placeDialog: placeDialog
    property alias dateDialog: dateDialog

    Keys.onEscapePressed: Editor.cancel()
    Shortcut {
        sequences: ["Ctrl+Return", "Ctrl+Enter", "Ctrl+S"]
        onActivated: Editor.done()
    }

    function takeControllerText(text, cursor) {
        syncing = true
        comment.text = text
        comment.cursorPosition = Math.min(cursor, comment.length)
        syncing = false
    }
    Connections {
        target: Editor
        function onTextReplaced(text, cursor) { screen.takeControllerText(text, cursor) }
        function onImagePickerRequested() { photoDialog.open() }
        function onPlaceChooserRequested(latitude, longitude) { placeDialog.openAt(latitude, longitude) }
    }
    Component.onCompleted: {
        takeControllerText(Editor.text, Editor.controllerCursor())
        comment.forceActiveFocus()
    }

    Rectangle {
        anchors.fill: parent
        color: screen.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent }
    }

    Rectangle {
        id: sheet
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.topMargin: screen.wide ? 32 : 0
        anchors.bottomMargin: screen.wide ? 32 : 0
        width: screen.wide ? Math.min(parent.width - 64, 720) : parent.width
        radius: screen.wide ? Theme.radius : 0
        color: Theme.background
        clip: true

        ColumnLayout {
            anchors.fill: parent
            spacing: 0

            // The level band with Cancel and Save.
            Rectangle {
                Layout.fillWidth: true
                Layout.preferredHeight: 112
                color: screen.levelColor
                radius: screen.wide ? Theme.radius : 0
                Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: Theme.radius; color: parent.color }
                Item {
                    anchors.fill: parent
                    anchors.margins: 12
                    Button {
                        objectName: "editorCancel"
                        anchors.left: parent.left
                        anchors.top: parent.top
                        text: L10n.tr("Cancel")
                        flat: true
                        contentItem: Text { text: parent.text; color: screen.onLevel; font.pointSize: Theme.fontBase }
                        background: Rectangle {
                            radius: 10
                            color: parent.down ? Qt.rgba(1, 1, 1, 0.25) : "transparent"
                            border.width: parent.visualFocus ? 2 : 1
                            border.color: Qt.rgba(screen.onLevel.r, screen.onLevel.g, screen.onLevel.b, parent.visualFocus ? 1 : 0.4)
                        }
                        onClicked: Editor.cancel()
                    }
                    Column {
                        anchors.centerIn: parent
                        spacing: 0
                        Text {
                            anchors.horizontalCenter: parent.horizontalCenter
                            text: Editor.level
                            color: screen.onLevel
                            font.pointSize: Theme.fontDisplay
                            font.weight: Font.Bold
                        }
                        Text {
                            objectName: "editorLevelText"
                            anchors.horizontalCenter: parent.horizontalCenter
                            text: Theme.levelText(Editor.level)
                            color: screen.onLevel
                            font.pointSize: Theme.fontTitle
                        }
                    }
                    Button {
                        objectName: "editorDone"
                        anchors.right: parent.right
                        anchors.top: parent.top
                        text: L10n.tr("Save")
                        contentItem: Text {
                            text: parent.text
                            color: screen.levelColor
                            font.pointSize: Theme.fontBase
                            font.weight: Font.DemiBold
                        }
                        background: Rectangle {
                            radius: 10
                            color: parent.down ? Qt.darker(screen.onLevel, 1.1) : screen.onLevel
                            border.width: parent.visualFocus ? 2 : 0
                            border.color: Theme.focus
                        }
                        onClicked: Editor.done()
                    }
                }
            }

            // The record was deleted in another window or program; what
            // the user wrote is kept until Save (a new record) or Cancel.
            Rectangle {
                objectName: "editorDeletedNotice"
                Layout.fillWidth: true
                Layout.preferredHeight: notice.implicitHeight + 20
                visible: Editor.recordDeletedElsewhere
                color: Theme.dark ? "#4a3a12" : "#fff3cd"
                Accessible.role: Accessible.AlertMessage
                Accessible.name: Editor.deletedNotice
                Text {
                    id: notice
                    anchors.fill: parent
                    anchors.margins: 10
                    anchors.leftMargin: 16
                    anchors.rightMargin: 16
                    text: Editor.deletedNotice
                    wrapMode: Text.WordWrap
                    color: Theme.dark ? "#ffe8a8" : "#5c4400"
                    font.pointSize: Theme.fontBase
                }
            }

            Flickable {
                Layout.fillWidth: true
                Layout.fillHeight: true
                contentHeight: body.implicitHeight + 32
                clip: true
                boundsBehavior: Flickable.StopAtBounds

                ColumnLayout {
                    id: body
                    x: 16
                    y: 16
                    width: parent.width - 32
                    spacing: 12

                    // Date and place.
                    RowLayout {
                        Layout.fillWidth: true
                        spacing: 8
                        ChipButton {
                            objectName: "editorDate"
                            iconName: "date"
                            text: Editor.dateText
                            Accessible.name: L10n.tr("Date") + ", " + Editor.dateText
                            onClicked: Editor.dateButton()
                        }
                        ChipButton {
                            objectName: "editorPlace"
                            iconName: "place"
                            text: Editor.hasPlace ? Editor.placeText : L10n.tr("Add place")
                            Accessible.name: L10n.tr("Place") + ", " + text
                            onClicked: Editor.placeButton()
                        }
                        Item { Layout.fillWidth: true }
                    }

                    Card {
                        Layout.fillWidth: true
                        Layout.preferredHeight: Math.max(160, comment.implicitHeight + 24)
                        TextArea {
                            id: comment
                            objectName: "editorText"
                            anchors.fill: parent
                            anchors.margins: 4
                            wrapMode: TextEdit.Wrap
                            placeholderText: L10n.tr("What is on your mind? Tags start with #, values follow a colon: #sleep:8h")
                            placeholderTextColor: Theme.textSecondary
                            color: Theme.text
                            selectionColor: Theme.focus
                            font.pointSize: Theme.fontTitle
                            background: null
                            Accessible.name: L10n.tr("Comment")
                            Keys.onEscapePressed: Editor.cancel()
                            onTextChanged: {
                                if (!screen.syncing)
                                    Editor.textEdited(text, cursorPosition)
                            }
                            onCursorPositionChanged: {
                                if (!screen.syncing)
                                    Editor.selectionChanged(selectionStart, selectionEnd)
                            }
                        }
                    }

                    // Offers for the tag being typed.
                    Flow {
                        objectName: "completionList"
                        Layout.fillWidth: true
                        spacing: 6
                        visible: Editor.completionVisible && Editor.completions.length > 0
                        Repeater {
                            model: Editor.completions
                            ChipButton {
                                objectName: "completion" + index
                                text: "#" + modelData.name
                                subtle: modelData.used
                                onClicked: {
                                    // Taking the offer ends this button: focus first.
                                    comment.forceActiveFocus()
                                    Editor.chooseCompletion(index)
                                }
                            }
                        }
                    }

                    // The comment's tags: a click opens the tag panel.
                    ColumnLayout {
                        Layout.fillWidth: true
                        visible: Editor.textTags.length > 0
                        spacing: 6
                        Text {
                            text: L10n.tr("Tags")
                            color: Theme.textSecondary
                            font.pointSize: Theme.fontCaption
                        }
                        Flow {
                            Layout.fillWidth: true
                            spacing: 6
                            Repeater {
                                model: Editor.textTags
                                ChipButton {
                                    objectName: "textTag_" + modelData
                                    text: "#" + modelData
                                    iconName: "edit"
                                    Accessible.description: L10n.tr("Rename or delete this tag")
                                    onClicked: Editor.openTag(modelData)
                                }
                            }
                        }
                    }

                    // Photo.
                    RowLayout {
                        Layout.fillWidth: true
                        spacing: 12
                        Rectangle {
                            visible: Editor.hasPhoto
                            Layout.preferredWidth: 96
                            Layout.preferredHeight: 96
                            radius: 12
                            color: Theme.surfaceAlt
                            clip: true
                            Image {
                                objectName: "editorThumb"
                                anchors.fill: parent
                                source: Editor.thumbUrl
                                fillMode: Image.PreserveAspectCrop
                                cache: false
                                Accessible.name: L10n.tr("Photo")
                            }
                        }
                        ChipButton {
                            objectName: "editorPhoto"
                            iconName: "photo"
                            text: Editor.hasPhoto ? L10n.tr("Change photo") : L10n.tr("Add photo")
                            onClicked: Editor.photoButton()
                        }
                        Item { Layout.fillWidth: true }
                    }
                }
            }
        }
    }

    FileDialog {
        id: photoDialog
        objectName: "photoDialog"
        title: L10n.tr("Choose a photo")
        nameFilters: [L10n.tr("Pictures") + " (*.jpg *.jpeg *.png *.JPG *.JPEG *.PNG)", L10n.tr("All files") + " (*)"]
        onAccepted: Editor.photoChosen(selectedFile.toString())
    }

    PlaceDialog { id: placeDialog }
    DateDialog { id: dateDialog; visible: Editor.timePickerVisible }
    TagPanel { id: tagPanel; visible: Editor.tagPanelVisible }
}
