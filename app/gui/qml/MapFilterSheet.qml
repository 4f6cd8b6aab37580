// The map's filter: a period (From and To as dates, either end open) or a
// set of tags. Done hands the choice to the core, which reads the pins
// again; a date it cannot read is said and nothing changes.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Templates as T
import QtQuick.Layouts
import Lumeo.Core

Popup {
    id: sheet
    objectName: "mapFilterSheet"
    modal: true
    focus: true
    anchors.centerIn: T.Overlay.overlay
    width: Math.min(400, parent ? parent.width - 32 : 400)
    height: Math.min(implicitHeight, parent ? parent.height - 48 : implicitHeight)
    padding: 20
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside
    property bool tags: false
    property string error: ""
    property var chosen: ({})
    property var names: []

    function openDates() {
        tags = false
        error = ""
        fromField.text = ""
        toField.text = ""
        open()
        fromField.forceActiveFocus()
    }
    function openTags() {
        tags = true
        error = ""
        names = MapTab.tagNames()
        var now = {}
        var selected = MapTab.selectedTags
        for (var i = 0; i < selected.length; ++i)
            now[selected[i]] = true
        chosen = now
        open()
    }
    function toggle(name) {
        var next = Object.assign({}, chosen)
        if (next[name])
            delete next[name]
        else
            next[name] = true
        chosen = next
    }
    function accept() {
        if (tags) {
            MapTab.setTags(Object.keys(chosen))
            close()
            return
        }
        var problem = MapTab.setDates(fromField.text, toField.text)
        if (problem !== "") {
            error = problem
            return
        }
        close()
    }

    background: Rectangle {
        color: Theme.surface
        radius: Theme.radius
        border.color: Theme.separator
    }

    contentItem: ColumnLayout {
        spacing: 12
        Text {
            text: sheet.tags ? L10n.tr("Tags") : L10n.tr("Period")
            color: Theme.text
            font.pointSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }

        // Dates.
        GridLayout {
            visible: !sheet.tags
            Layout.fillWidth: true
            columns: 2
            columnSpacing: 10
            Text { text: L10n.tr("From"); color: Theme.textSecondary }
            TextField {
                id: fromField
                objectName: "mapFilterFrom"
                Layout.fillWidth: true
                placeholderText: "2026-01-01"
                Accessible.name: L10n.tr("From")
                onAccepted: sheet.accept()
            }
            Text { text: L10n.tr("To"); color: Theme.textSecondary }
            TextField {
                id: toField
                objectName: "mapFilterTo"
                Layout.fillWidth: true
                placeholderText: L10n.tr("today")
                Accessible.name: L10n.tr("To")
                onAccepted: sheet.accept()
            }
        }

        // Tags.
        Text {
            visible: sheet.tags && sheet.names.length === 0
            text: L10n.tr("No tags yet.")
            color: Theme.textSecondary
        }
        ListView {
            id: tagList
            objectName: "mapFilterTags"
            visible: sheet.tags && sheet.names.length > 0
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(contentHeight, 300)
            clip: true
            model: sheet.names
            delegate: CheckDelegate {
                objectName: "mapFilterTag_" + modelData
                width: tagList.width
                text: "#" + modelData
                checked: sheet.chosen[modelData] === true
                onClicked: sheet.toggle(modelData)
                palette.text: Theme.text
                palette.windowText: Theme.text
            }
        }

        Text {
            Layout.fillWidth: true
            visible: sheet.error !== ""
            objectName: "mapFilterError"
            text: sheet.error
            color: Theme.danger
            wrapMode: Text.Wrap
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            Button { text: L10n.tr("Cancel"); onClicked: sheet.close() }
            Button { objectName: "mapFilterDone"; text: L10n.tr("Done"); onClicked: sheet.accept() }
        }
    }
}
