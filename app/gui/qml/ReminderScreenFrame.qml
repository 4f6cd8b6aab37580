// The frame the reminder screens share: a panel (a sheet over the tabs
// when wide, the whole window when narrow) with Back, a title and an
// optional action on the right. The screen's content goes inside.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: frame
    property bool wide: false
    property string title
    property string actionText
    property string backName: "reminderBack"
    property string actionName: "reminderAction"
    property bool actionEnabled: true
    default property alias content: body.data
    signal back()
    signal action()

    Keys.onEscapePressed: frame.back()

    Rectangle {
        anchors.fill: parent
        color: frame.wide ? Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.3) : Theme.background
        MouseArea { anchors.fill: parent }
    }

    Rectangle {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        anchors.margins: frame.wide ? 32 : 0
        width: frame.wide ? Math.min(parent.width - 64, 600) : parent.width
        radius: frame.wide ? Theme.radius : 0
        color: Theme.background
        MouseArea { anchors.fill: parent }

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                RoundButton {
                    objectName: frame.backName
                    flat: true
                    focusPolicy: Qt.StrongFocus
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: frame.back()
                }
                Text {
                    Layout.fillWidth: true
                    text: frame.title
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    elide: Text.ElideRight
                    Accessible.role: Accessible.Heading
                }
                Button {
                    objectName: frame.actionName
                    visible: frame.actionText !== ""
                    enabled: frame.actionEnabled
                    text: frame.actionText
                    Accessible.name: text
                    onClicked: frame.action()
                    background: Rectangle {
                        radius: 10
                        color: parent.down ? Qt.darker(Theme.accent, 1.2) : Theme.accent
                        opacity: parent.enabled ? 1 : 0.4
                        border.width: parent.visualFocus ? 2 : 0
                        border.color: Theme.focus
                    }
                    contentItem: Text {
                        text: parent.text
                        color: Theme.onAccent
                        horizontalAlignment: Text.AlignHCenter
                        font.pointSize: Theme.fontBase
                        font.weight: Font.DemiBold
                    }
                }
            }

            Item {
                id: body
                Layout.fillWidth: true
                Layout.fillHeight: true
            }
        }
    }
}
