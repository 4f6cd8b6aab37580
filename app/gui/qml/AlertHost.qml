// Shows the core's alerts, action sheets and share sheets one at a time
// (Presenter.current) and hands the chosen button back. Escape picks the
// cancel button where there is one; Enter the first default one.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Lumeo.Core

Item {
    id: host
    readonly property var request: Presenter.current
    readonly property bool active: request.id !== undefined
    readonly property bool isShare: active && request.kind === "share"
    property string shareError: ""
    visible: active

    function cancelResult() {
        var actions = request.actions || []
        for (var i = 0; i < actions.length; ++i)
            if (actions[i].style === "cancel")
                return actions[i].result
        return undefined
    }
    function choose(action) {
        if (request.kind === "textfield") {
            Presenter.answerText(request.id, action.result, field.text)
            return
        }
        if (isShare) {
            if (action === undefined) {
                Presenter.answerShare(request.id, "")
                return
            }
            if (action.type === "org.lumeo.share.save") {
                saveDialog.activity = action.type
                saveDialog.open()
                return
            }
            if (action.type.indexOf("org.lumeo.share.") === 0) {
                var error = Presenter.performShareActivity(action.type, "")
                if (error !== "") {
                    shareError = error
                    return
                }
            }
            Presenter.answerShare(request.id, action.type)
            return
        }
        Presenter.answer(request.id, action.result)
    }

    onRequestChanged: {
        shareError = ""
        field.text = ""
        if (active)
            panel.forceActiveFocus()
    }

    Rectangle {
        anchors.fill: parent
        color: Qt.rgba(0, 0, 0, Theme.dark ? 0.55 : 0.35)
        MouseArea { anchors.fill: parent }
    }

    FocusScope {
        id: panel
        objectName: "alertPanel"
        anchors.centerIn: parent
        width: Math.min(host.width - 32, 440)
        height: card.height
        Accessible.role: Accessible.Dialog
        Accessible.name: host.request.title || ""

        Keys.onEscapePressed: {
            if (host.request.kind === "textfield") {
                var c = host.cancelResult()
                if (c !== undefined)
                    Presenter.answerText(host.request.id, c, "")
                return
            }
            if (host.isShare) {
                host.choose(undefined)
                return
            }
            var cancel = host.cancelResult()
            if (cancel !== undefined)
                Presenter.answer(host.request.id, cancel)
        }

        Card {
            id: card
            width: parent.width
            height: content.implicitHeight + 40
            ColumnLayout {
                id: content
                anchors.fill: parent
                anchors.margins: 20
                spacing: 10
                Text {
                    objectName: "alertTitle"
                    Layout.fillWidth: true
                    visible: text !== ""
                    text: host.request.title || ""
                    color: Theme.text
                    font.pointSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    wrapMode: Text.Wrap
                }
                Text {
                    objectName: "alertMessage"
                    Layout.fillWidth: true
                    visible: text !== ""
                    text: host.request.message || ""
                    color: host.isShare ? Theme.textSecondary : Theme.text
                    font.pointSize: Theme.fontBase
                    wrapMode: Text.Wrap
                    maximumLineCount: 12
                    elide: Text.ElideRight
                }
                TextField {
                    id: field
                    objectName: "alertField"
                    Layout.fillWidth: true
                    visible: host.request.kind === "textfield"
                    placeholderText: host.request.placeholder || ""
                    Accessible.name: host.request.placeholder || host.request.title || ""
                }
                Text {
                    Layout.fillWidth: true
                    visible: host.shareError !== ""
                    text: host.shareError
                    color: Theme.danger
                    wrapMode: Text.Wrap
                }
                Flow {
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    spacing: 8
                    layoutDirection: Qt.RightToLeft
                    Repeater {
                        model: host.request.actions || []
                        Button {
                            objectName: "alertButton" + index
                            text: modelData.title
                            focus: index === 0
                            enabled: (host.request.needsText || []).indexOf(modelData.result) < 0 || field.text !== ""
                            width: host.request.kind === "alert" && (host.request.actions || []).length <= 2
                                   ? implicitWidth : parent.width
                            Accessible.name: modelData.title
                            palette.buttonText: modelData.style === "destructive" ? Theme.danger : Theme.text
                            background: Rectangle {
                                radius: 10
                                color: modelData.style === "cancel" ? "transparent"
                                       : (parent.down ? Theme.separator : Theme.surfaceAlt)
                                border.width: parent.visualFocus ? 2 : (modelData.style === "cancel" ? 1 : 0)
                                border.color: parent.visualFocus ? Theme.focus : Theme.separator
                            }
                            contentItem: Text {
                                text: modelData.title
                                horizontalAlignment: Text.AlignHCenter
                                color: modelData.style === "destructive" ? Theme.danger : Theme.text
                                font.pointSize: Theme.fontBase
                                font.weight: modelData.style === "cancel" ? Font.Normal : Font.DemiBold
                            }
                            Keys.onReturnPressed: clicked()
                            Keys.onEnterPressed: clicked()
                            onClicked: host.choose(modelData)
                        }
                    }
                    Button {
                        visible: host.isShare
                        objectName: "shareCancel"
                        text: L10n.tr("Cancel")
                        onClicked: host.choose(undefined)
                    }
                }
            }
        }
    }

    FileDialog {
        id: saveDialog
        property string activity
        fileMode: FileDialog.SaveFile
        nameFilters: [L10n.tr("JPEG pictures") + " (*.jpg *.jpeg)"]
        defaultSuffix: "jpg"
        onAccepted: {
            var error = Presenter.performShareActivity(activity, selectedFile.toString())
            if (error !== "")
                host.shareError = error
            else
                Presenter.answerShare(host.request.id, activity)
        }
    }
}
