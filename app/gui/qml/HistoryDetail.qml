// The selected record: its level, date and time, the edited mark, the
// photo (a tap opens the gallery) and the comment as tagged text, whose
// tags open their own history. Share, edit and delete go through the core's
// share sheet and its warning.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

Card {
    id: card
    objectName: "historyDetail"
    property var history
    property bool wide: false
    readonly property var comment: history ? history.comment : null
    implicitHeight: content.implicitHeight + 32
    Accessible.role: Accessible.Pane
    Accessible.name: L10n.tr("Record")

    Text {
        anchors.centerIn: parent
        visible: card.history && !card.history.hasDetail
        text: L10n.tr("Choose a record to see it here")
        color: Theme.textSecondary
        font.pointSize: Theme.fontBase
    }

    Flickable {
        anchors.fill: parent
        anchors.margins: 16
        contentHeight: content.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        visible: card.history && card.history.hasDetail

        ColumnLayout {
            id: content
            width: parent.width
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                spacing: 12
                Rectangle {
                    Layout.preferredWidth: 44
                    Layout.preferredHeight: 44
                    radius: 22
                    color: card.history ? card.history.detailColor : "gray"
                    Text {
                        anchors.centerIn: parent
                        text: card.history ? card.history.detailLevel : ""
                        color: card.history ? Theme.levelTextColor(card.history.detailLevel) : "white"
                        font.pointSize: Theme.fontTitle
                        font.weight: Font.Bold
                    }
                }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Text {
                        objectName: "historyDetailLevel"
                        Layout.fillWidth: true
                        text: card.history ? card.history.detailLevelText : ""
                        color: Theme.text
                        elide: Text.ElideRight
                        font.pointSize: Theme.fontTitle
                        font.weight: Font.DemiBold
                    }
                    Text {
                        objectName: "historyDetailDate"
                        Layout.fillWidth: true
                        text: card.history ? card.history.detailDate
                                + (card.history.detailEdited ? "  ·  " + L10n.tr("Edited") : "") : ""
                        color: Theme.textSecondary
                        elide: Text.ElideRight
                        font.pointSize: Theme.fontCaption
                    }
                }
            }

            // The comment flows around the photo in its top right corner:
            // the core shortens the first lines for it.
            Item {
                id: textArea
                Layout.fillWidth: true
                Layout.preferredHeight: Math.max(photo.visible ? photo.height : 0,
                                                 card.comment ? card.comment.height : 0)
                onWidthChanged: if (card.comment) card.comment.width = width
                Component.onCompleted: if (card.comment) card.comment.width = width
                // The comment's text colour follows the theme; tags keep theirs.
                Binding { target: card.comment; property: "dark"; value: Theme.dark; when: card.comment !== null }

                Image {
                    id: commentImage
                    objectName: "historyDetailComment"
                    width: card.comment ? card.comment.width : 0
                    height: card.comment ? card.comment.height : 0
                    visible: card.history && card.history.detailHasComment
                    source: card.comment && card.comment.source !== "" ? "image://lumeo/" + card.comment.source : ""
                    sourceSize.width: width * 2
                    fillMode: Image.Stretch
                    cache: false
                    smooth: true
                    Accessible.role: Accessible.StaticText
                    Accessible.name: card.history ? card.comment.text : ""
                    MouseArea {
                        anchors.fill: parent
                        cursorShape: tagUnder(mouseX, mouseY) !== "" ? Qt.PointingHandCursor : Qt.ArrowCursor
                        hoverEnabled: true
                        function tagUnder(x, y) { return card.comment ? card.comment.tagAt(x, y) : "" }
                        onClicked: function (mouse) {
                            var name = tagUnder(mouse.x, mouse.y)
                            if (name !== "")
                                card.history.openTag(name)
                        }
                    }
                }
                // The tags as buttons for the keyboard and screen readers.
                Repeater {
                    model: card.comment ? card.comment.tags : []
                    AbstractButton {
                        x: modelData.x
                        y: modelData.y
                        width: modelData.width
                        height: modelData.height
                        focusPolicy: Qt.TabFocus
                        Accessible.role: Accessible.Link
                        Accessible.name: "#" + modelData.name
                        background: Rectangle {
                            color: "transparent"
                            radius: 6
                            border.width: parent.visualFocus ? 2 : 0
                            border.color: Theme.focus
                        }
                        onClicked: card.history.openTag(modelData.name)
                    }
                }
                Image {
                    id: photo
                    objectName: "historyDetailPhoto"
                    anchors.right: parent.right
                    width: 108
                    height: 108
                    visible: card.history && card.history.detailPhoto.toString() !== ""
                    source: card.history ? card.history.detailPhoto : ""
                    fillMode: Image.PreserveAspectCrop
                    asynchronous: true
                    sourceSize: Qt.size(216, 216)
                    Accessible.role: Accessible.Button
                    Accessible.name: L10n.tr("Photo")
                    MouseArea {
                        anchors.fill: parent
                        cursorShape: Qt.PointingHandCursor
                        onClicked: card.history.openGallery()
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                spacing: 8
                HistoryButton {
                    objectName: "historyShare"
                    text: L10n.tr("Share")
                    onClicked: card.history.share()
                }
                HistoryButton {
                    objectName: "historyEdit"
                    text: L10n.tr("Edit")
                    onClicked: card.history.edit()
                }
                Item { Layout.fillWidth: true }
                HistoryButton {
                    objectName: "historyDelete"
                    visible: card.history && card.history.canShowCalendar
                    text: L10n.tr("Delete")
                    danger: true
                    onClicked: card.history.remove()
                }
            }
        }
    }
}
