// The passcode entry: four dots for the stage's field, a keypad, and the
// shake of a wrong code. Digits and Backspace work from the keyboard;
// Escape cancels where the screen may be left. Used by the tab gate, the
// lock settings and the whole-window lock.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "passInputScreen"
    property string className
    property bool wide: false
    focus: true

    Component.onCompleted: {
        PassInput.attach()
        forceActiveFocus()
    }

    Keys.onPressed: function (event) {
        if (event.key >= Qt.Key_0 && event.key <= Qt.Key_9) {
            PassInput.digit(String(event.key - Qt.Key_0))
            event.accepted = true
        } else if (event.key === Qt.Key_Backspace) {
            PassInput.back()
            event.accepted = true
        } else if (event.key === Qt.Key_Escape) {
            PassInput.cancel()
            event.accepted = true
        }
    }

    // The screen under this file may change while it shows (the window
    // lock replaces its stand-in): take the current one.
    Connections {
        target: Shell
        function onChanged() { PassInput.attach() }
    }

    Connections {
        target: PassInput
        function onTranslateRequested(x, seconds) {
            shake.to = x
            shake.duration = Math.max(1, seconds * 1000)
            shake.restart()
        }
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.background
        MouseArea { anchors.fill: parent }
    }

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 360)
        spacing: 20

        Icon {
            Layout.alignment: Qt.AlignHCenter
            name: "lock"
            size: 40
            color: Theme.accent
        }
        Text {
            objectName: "passTitle"
            Layout.alignment: Qt.AlignHCenter
            text: PassInput.title
            color: Theme.text
            font.pointSize: Theme.fontHeadline
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
        }
        Text {
            objectName: "passStageLabel"
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: PassInput.stageLabels[PassInput.stage] || ""
            color: Theme.textSecondary
            wrapMode: Text.Wrap
            font.pointSize: Theme.fontBase
        }

        Item {
            Layout.fillWidth: true
            Layout.preferredHeight: 28
            Row {
                id: dots
                objectName: "passDots"
                spacing: 18
                anchors.verticalCenter: parent.verticalCenter
                x: (parent.width - width) / 2 + offset
                property real offset: 0
                Accessible.role: Accessible.StaticText
                Accessible.name: L10n.format("%d of 4 digits", [PassInput.digitCounts[PassInput.stage]])
                NumberAnimation on offset {
                    id: shake
                    running: false
                    onFinished: PassInput.translateFinished()
                }
                Repeater {
                    model: 4
                    Rectangle {
                        width: 18
                        height: 18
                        radius: 9
                        readonly property bool filled: index < PassInput.digitCounts[PassInput.stage]
                        color: filled ? Theme.accent : "transparent"
                        border.width: 2
                        border.color: filled ? Theme.accent : Theme.textSecondary
                    }
                }
            }
        }

        GridLayout {
            objectName: "keypad"
            visible: PassInput.keypadVisible
            Layout.alignment: Qt.AlignHCenter
            columns: 3
            rowSpacing: 12
            columnSpacing: 18
            Repeater {
                model: ["1", "2", "3", "4", "5", "6", "7", "8", "9", "", "0", "back"]
                AbstractButton {
                    objectName: modelData === "back" ? "keyBack" : (modelData === "" ? "" : "key" + modelData)
                    // The blank keeps its cell, so 0 sits under 8.
                    opacity: modelData !== "" ? 1 : 0
                    enabled: modelData !== ""
                    Accessible.ignored: modelData === ""
                    Layout.preferredWidth: 68
                    Layout.preferredHeight: 68
                    focusPolicy: Qt.NoFocus
                    Accessible.role: Accessible.Button
                    Accessible.name: modelData === "back" ? L10n.tr("Delete") : modelData
                    onClicked: modelData === "back" ? PassInput.back() : PassInput.digit(modelData)
                    background: Rectangle {
                        radius: 34
                        color: parent.down ? Theme.separator : (modelData === "back" ? "transparent" : Theme.surface)
                        border.width: modelData === "back" ? 0 : 1
                        border.color: Theme.separator
                    }
                    contentItem: Item {
                        Text {
                            anchors.centerIn: parent
                            visible: modelData !== "back"
                            text: modelData
                            color: Theme.text
                            font.pointSize: Theme.fontHeadline
                        }
                        Icon {
                            anchors.centerIn: parent
                            visible: modelData === "back"
                            name: "backspace"
                            color: Theme.textSecondary
                        }
                    }
                }
            }
        }

        Button {
            objectName: "passCancel"
            visible: PassInput.cancellable
            Layout.alignment: Qt.AlignHCenter
            text: L10n.tr("Cancel")
            flat: true
            contentItem: Text { text: parent.text; color: Theme.accent; font.pointSize: Theme.fontBase }
            onClicked: PassInput.cancel()
        }
    }
}
