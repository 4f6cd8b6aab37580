// The calendar's tag sheet: every tag, most used first; the calendar then
// shows only the records with any of the chosen tags.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Templates as T
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: sheet
    objectName: "historyTagSheet"
    property var history
    modal: true
    focus: true
    anchors.centerIn: T.Overlay.overlay
    width: Math.min(360, parent ? parent.width - 32 : 360)
    height: Math.min(480, parent ? parent.height - 64 : 480)
    padding: 16
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside

    background: Rectangle {
        color: Theme.surface
        radius: Theme.radius
        border.color: Theme.separator
    }

    contentItem: ColumnLayout {
        spacing: 8
        Text {
            text: L10n.tr("Tags")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
        }
        ListView {
            id: list
            objectName: "historyTagList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: sheet.history ? sheet.history.tagFilter : null
            delegate: CheckDelegate {
                required property int index
                required property string name
                required property int frequency
                required property bool chosen
                objectName: "historyTag_" + name
                width: ListView.view.width
                text: "#" + name + "  (" + frequency + ")"
                checked: chosen
                onClicked: sheet.history.toggleTag(index)
            }
        }
        Text {
            visible: list.count === 0
            text: L10n.tr("No tags yet")
            color: Theme.textSecondary
        }
        HistoryButton {
            objectName: "historyTagDone"
            Layout.alignment: Qt.AlignRight
            text: L10n.tr("Done")
            prominent: true
            onClicked: {
                sheet.history.applyTagFilter()
                sheet.close()
            }
        }
    }
}
