// The splash: the brand colour with the icon fading in. When the fade has
// ended the core opens the journal and builds the tabs (Shell.splashFaded);
// then the cover fades away.
import QtQuick
import Lumeo.Core

Rectangle {
    id: splash
    property bool skip: false
    color: Theme.brand
    visible: opacity > 0
    opacity: 1
    Accessible.role: Accessible.Animation
    Accessible.name: "Lumeo"

    Image {
        id: logo
        anchors.centerIn: parent
        source: "qrc:/Lumeo/icons/lumeo.svg"
        sourceSize: Qt.size(112, 112)
        opacity: 0
    }
    Text {
        anchors.top: logo.bottom
        anchors.topMargin: 16
        anchors.horizontalCenter: parent.horizontalCenter
        text: "Lumeo"
        color: "white"
        font.pointSize: Theme.fontHeadline
        font.weight: Font.Light
        opacity: logo.opacity
    }

    SequentialAnimation {
        id: launch
        NumberAnimation { target: logo; property: "opacity"; from: 0; to: 1; duration: 250 }
        ScriptAction { script: Shell.splashFaded() }
        NumberAnimation { target: splash; property: "opacity"; to: 0; duration: 330 }
    }

    Component.onCompleted: {
        if (skip) {
            Shell.splashFaded()
            opacity = 0
        } else {
            launch.start()
        }
    }
}
