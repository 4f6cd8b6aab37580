// The welcome on a first start: what Lumeo does in three lines, and Start.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "welcomeScreen"
    property string className
    property bool wide: false
    Keys.onEscapePressed: Shell.finishTutorial()
    Keys.onReturnPressed: Shell.finishTutorial()

    Rectangle {
        anchors.fill: parent
        color: Theme.background
        MouseArea { anchors.fill: parent }
    }

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 480)
        spacing: 18
        Image {
            Layout.alignment: Qt.AlignHCenter
            source: "qrc:/Lumeo/icons/lumeo.svg"
            sourceSize: Qt.size(88, 88)
            Accessible.ignored: true
        }
        Text {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: L10n.tr("Welcome to Lumeo")
            color: Theme.text
            font.pointSize: Theme.fontHeadline
            font.weight: Font.DemiBold
            wrapMode: Text.Wrap
            Accessible.role: Accessible.Heading
        }
        Repeater {
            model: [
                { icon: "capture", text: L10n.tr("Choose how you feel, from 1 to 10, with one click or one key.") },
                { icon: "edit", text: L10n.tr("Add a comment with #tags, and values like #sleep:8h, a photo and a place.") },
                { icon: "summary", text: L10n.tr("See your trend, your weekly rhythm and what goes with your good days. Your journal stays on this computer.") }
            ]
            RowLayout {
                Layout.fillWidth: true
                spacing: 14
                Rectangle {
                    Layout.preferredWidth: 40
                    Layout.preferredHeight: 40
                    radius: 20
                    color: Theme.surfaceAlt
                    Icon { anchors.centerIn: parent; name: modelData.icon; color: Theme.accent; size: 22 }
                }
                Text {
                    Layout.fillWidth: true
                    text: modelData.text
                    color: Theme.text
                    wrapMode: Text.Wrap
                    font.pointSize: Theme.fontBase
                }
            }
        }
        Button {
            objectName: "welcomeStart"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            text: L10n.tr("Start")
            focus: true
            contentItem: Text {
                text: parent.text
                color: Theme.onAccent
                font.pointSize: Theme.fontTitle
                font.weight: Font.DemiBold
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
            }
            background: Rectangle {
                implicitWidth: 180
                implicitHeight: 48
                radius: 24
                color: parent.down ? Qt.darker(Theme.accent, 1.15) : Theme.accent
                border.width: parent.visualFocus ? 2 : 0
                border.color: Theme.focus
            }
            onClicked: Shell.finishTutorial()
        }
    }
}
