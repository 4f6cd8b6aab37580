// The pill button of the History and Summary tabs: tinted with the accent
// (or the danger colour), filled when prominent, with a focus ring.
import QtQuick
import QtQuick.Controls.Basic
import Lumeo.Core

Button {
    id: button
    property bool danger: false
    property bool prominent: false
    property color tone: danger ? Theme.danger : Theme.accent
    implicitHeight: 40
    leftPadding: 18
    rightPadding: 18
    focusPolicy: Qt.StrongFocus
    Accessible.name: text

    background: Rectangle {
        radius: height / 2
        color: button.prominent ? button.tone
                                : Qt.rgba(button.tone.r, button.tone.g, button.tone.b,
                                          button.down ? 0.26 : (button.hovered ? 0.18 : (Theme.dark ? 0.16 : 0.10)))
        border.width: button.visualFocus ? 2 : 0
        border.color: Theme.focus
    }
    contentItem: Text {
        text: button.text
        color: button.prominent ? Theme.onAccent : button.tone
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        font.pointSize: Theme.fontBase
        font.weight: Font.DemiBold
    }
}
