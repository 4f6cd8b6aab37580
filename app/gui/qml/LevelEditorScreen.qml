// The level editor: the ten levels' texts on their colours, and a colour
// panel whose three colours (level 10, the middle, level 1) colour all ten
// levels as a gradient. Done keeps the table; Reset asks, then puts the
// shipped levels back at once; Back and Escape leave without keeping.
// Narrow windows show the panel under the rows, opened and closed by its
// handle; wide windows show it beside them.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: screen
    objectName: "levelEditorScreen"
    property string className
    property bool wide: false
    readonly property var buttonTitles: [L10n.tr("Level 10"), L10n.tr("Middle"), L10n.tr("Level 1")]

    Component.onCompleted: {
        LevelEditor.open()
        rowList.forceActiveFocus()
    }
    Keys.onEscapePressed: LevelEditor.back()
    Shortcut {
        sequences: ["Ctrl+Return", "Ctrl+Enter", "Ctrl+S"]
        onActivated: LevelEditor.done()
    }

    function rowField(row) {
        var item = rowList.itemAtIndex(row)
        return item ? item.field : null
    }
    Connections {
        target: LevelEditor
        function onFocusRowRequested(row) {
            rowList.positionViewAtIndex(row, ListView.Contain)
            var field = screen.rowField(row)
            if (field) {
                field.forceActiveFocus()
                field.selectAll()
            }
        }
        function onRowRevealRequested(row) { rowList.positionViewAtIndex(row, ListView.Contain) }
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
        anchors.margins: screen.wide ? 32 : 0
        width: screen.wide ? Math.min(parent.width - 64, 920) : parent.width
        radius: screen.wide ? Theme.radius : 0
        color: Theme.background
        clip: true

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 16
            spacing: 12

            // Back, title, Reset and Done.
            RowLayout {
                Layout.fillWidth: true
                spacing: 8
                RoundButton {
                    objectName: "levelEditorBack"
                    flat: true
                    Accessible.name: L10n.tr("Back")
                    contentItem: Icon { name: "back"; color: Theme.text }
                    onClicked: LevelEditor.back()
                }
                Text {
                    Layout.fillWidth: true
                    text: L10n.tr("Moods")
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    elide: Text.ElideRight
                    Accessible.role: Accessible.Heading
                }
                ChipButton {
                    objectName: "levelEditorReset"
                    text: L10n.tr("Reset")
                    onClicked: LevelEditor.reset()
                }
                Button {
                    id: doneButton
                    objectName: "levelEditorDone"
                    text: L10n.tr("Done")
                    Accessible.name: text
                    contentItem: Text {
                        text: doneButton.text
                        color: Theme.onAccent
                        font.pointSize: Theme.fontBase
                        font.weight: Font.DemiBold
                        horizontalAlignment: Text.AlignHCenter
                        verticalAlignment: Text.AlignVCenter
                    }
                    background: Rectangle {
                        implicitHeight: 36
                        implicitWidth: 72
                        radius: height / 2
                        color: doneButton.down ? Qt.darker(Theme.accent, 1.15) : Theme.accent
                        border.width: doneButton.visualFocus ? 2 : 0
                        border.color: Theme.focus
                    }
                    onClicked: LevelEditor.done()
                }
            }

            // Rows and panel: side by side when wide, the panel under the
            // rows when narrow.
            Item {
                id: body
                Layout.fillWidth: true
                Layout.fillHeight: true
                readonly property int gap: 16

                // The ten levels, level 10 first.
                ListView {
                    id: rowList
                    objectName: "levelRows"
                    x: 0
                    y: 0
                    width: screen.wide ? body.width - panel.width - body.gap : body.width
                    height: screen.wide ? body.height : Math.max(120, body.height - panel.height - body.gap)
                    clip: true
                    spacing: 6
                    model: LevelEditor.rows
                    boundsBehavior: Flickable.StopAtBounds
                    keyNavigationEnabled: false
                    activeFocusOnTab: false
                    focus: true
                    Accessible.role: Accessible.List
                    Accessible.name: L10n.tr("Mood levels")
                    delegate: Rectangle {
                        id: row
                        objectName: "levelRow_" + levelIndex
                        required property int index
                        required property int levelIndex
                        required property int level
                        required property string text
                        required property color rowColor
                        required property color textColor
                        property alias field: field
                        width: ListView.view.width
                        height: 48
                        radius: 12
                        color: rowColor
                        border.width: field.activeFocus ? 3 : 0
                        border.color: Theme.focus

                        RowLayout {
                            anchors.fill: parent
                            anchors.leftMargin: 12
                            anchors.rightMargin: 8
                            spacing: 10
                            Text {
                                Layout.preferredWidth: 28
                                text: row.level
                                color: row.textColor
                                font.pointSize: Theme.fontTitle
                                font.weight: Font.Bold
                                horizontalAlignment: Text.AlignHCenter
                                Accessible.ignored: true
                            }
                            TextField {
                                id: field
                                objectName: "levelText_" + row.levelIndex
                                Layout.fillWidth: true
                                text: row.text
                                color: row.textColor
                                selectionColor: Theme.focus
                                selectedTextColor: "white"
                                font.pointSize: Theme.fontBase
                                font.weight: Font.DemiBold
                                background: Rectangle {
                                    radius: 8
                                    color: field.activeFocus ? Qt.rgba(1, 1, 1, Theme.dark ? 0.12 : 0.22) : "transparent"
                                }
                                Accessible.name: L10n.format("Text of level %@", [row.level])
                                onActiveFocusChanged: if (activeFocus) LevelEditor.startEdit(row.levelIndex)
                                onTextEdited: LevelEditor.editRow(row.levelIndex, text)
                                onAccepted: {
                                    LevelEditor.endEdit(row.levelIndex)
                                    rowList.forceActiveFocus()
                                }
                                Keys.onUpPressed: LevelEditor.previousRow()
                                Keys.onDownPressed: LevelEditor.nextRow()
                                Keys.onEscapePressed: LevelEditor.back()
                            }
                        }
                    }
                }

                // The colour panel.
                Card {
                    id: panel
                    objectName: "colorPanel"
                    readonly property bool open: screen.wide || LevelEditor.panelOpen
                    x: screen.wide ? body.width - width : 0
                    y: screen.wide ? 0 : body.height - height
                    width: screen.wide ? 340 : body.width
                    height: screen.wide ? Math.min(body.height, panelContent.implicitHeight + 24)
                                        : Math.min(panelContent.implicitHeight + 24, body.height - 120 - body.gap)
                    clip: true

                    ColumnLayout {
                        id: panelContent
                        anchors.left: parent.left
                        anchors.right: parent.right
                        anchors.top: parent.top
                        anchors.margins: 12
                        spacing: 12

                        RowLayout {
                            Layout.fillWidth: true
                            spacing: 8
                            AbstractButton {
                                id: handle
                                objectName: "colorPanelHandle"
                                Layout.fillWidth: true
                                implicitHeight: 32
                                enabled: !screen.wide
                                focusPolicy: Qt.StrongFocus
                                Accessible.role: Accessible.Button
                                Accessible.name: L10n.tr("Colors")
                                Keys.onReturnPressed: clicked()
                                Keys.onEnterPressed: clicked()
                                onClicked: LevelEditor.togglePanel()
                                contentItem: RowLayout {
                                    spacing: 8
                                    Text {
                                        text: L10n.tr("Colors")
                                        color: Theme.text
                                        font.pointSize: Theme.fontTitle
                                        font.weight: Font.DemiBold
                                    }
                                    Icon {
                                        visible: !screen.wide
                                        name: "back"
                                        size: 16
                                        rotation: panel.open ? -90 : 90
                                        color: Theme.textSecondary
                                    }
                                    Item { Layout.fillWidth: true }
                                }
                                background: Rectangle {
                                    radius: 8
                                    color: "transparent"
                                    border.width: handle.visualFocus ? 2 : 0
                                    border.color: Theme.focus
                                }
                            }
                            Text {
                                text: L10n.tr("Gradient")
                                color: Theme.textSecondary
                                font.pointSize: Theme.fontBase
                            }
                            Switch {
                                id: gradientSwitch
                                objectName: "gradientSwitch"
                                checked: LevelEditor.gradientMode
                                Accessible.name: L10n.tr("Gradient")
                                onToggled: LevelEditor.setGradientMode(checked)
                                indicator: Rectangle {
                                    implicitWidth: 44
                                    implicitHeight: 26
                                    x: gradientSwitch.leftPadding
                                    y: parent.height / 2 - height / 2
                                    radius: height / 2
                                    color: gradientSwitch.checked ? Theme.accent : Theme.surfaceAlt
                                    border.width: gradientSwitch.visualFocus ? 2 : 1
                                    border.color: gradientSwitch.visualFocus ? Theme.focus : Theme.separator
                                    Rectangle {
                                        x: gradientSwitch.checked ? parent.width - width - 3 : 3
                                        anchors.verticalCenter: parent.verticalCenter
                                        width: 20
                                        height: 20
                                        radius: 10
                                        color: "white"
                                        border.color: Theme.separator
                                    }
                                }
                            }
                        }

                        Text {
                            Layout.fillWidth: true
                            visible: panel.open
                            text: LevelEditor.gradientMode
                                  ? L10n.tr("The ten levels take their colors from these three.")
                                  : L10n.tr("Choose a color to color the levels from level 10 through the middle to level 1.")
                            wrapMode: Text.WordWrap
                            color: Theme.textSecondary
                            font.pointSize: Theme.fontCaption
                        }

                        // The gradient's three colours.
                        RowLayout {
                            Layout.fillWidth: true
                            visible: panel.open
                            spacing: 8
                            Repeater {
                                model: 3
                                AbstractButton {
                                    id: colorButton
                                    objectName: "colorButton" + index
                                    required property int index
                                    readonly property bool selected: LevelEditor.selectedButton === index
                                    Layout.fillWidth: true
                                    implicitHeight: 64
                                    focusPolicy: Qt.StrongFocus
                                    checkable: false
                                    Accessible.role: Accessible.RadioButton
                                    Accessible.name: screen.buttonTitles[index]
                                    Accessible.checked: selected
                                    Keys.onReturnPressed: clicked()
                                    Keys.onEnterPressed: clicked()
                                    onClicked: LevelEditor.chooseColorButton(index)
                                    background: Rectangle {
                                        radius: 12
                                        color: colorButton.selected ? Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, Theme.dark ? 0.25 : 0.12)
                                                                    : (colorButton.hovered ? Theme.surfaceAlt : "transparent")
                                        border.width: colorButton.visualFocus ? 2 : 1
                                        border.color: colorButton.visualFocus ? Theme.focus
                                                                              : (colorButton.selected ? Theme.accent : Theme.separator)
                                    }
                                    contentItem: ColumnLayout {
                                        spacing: 4
                                        Rectangle {
                                            Layout.alignment: Qt.AlignHCenter
                                            width: 28
                                            height: 28
                                            radius: 14
                                            color: LevelEditor.buttonColors.length > colorButton.index
                                                   ? LevelEditor.buttonColors[colorButton.index] : "grey"
                                            border.color: Theme.separator
                                        }
                                        Text {
                                            Layout.alignment: Qt.AlignHCenter
                                            text: screen.buttonTitles[colorButton.index]
                                            color: Theme.text
                                            font.pointSize: Theme.fontCaption
                                        }
                                    }
                                }
                            }
                        }

                        ColorPicker {
                            id: picker
                            objectName: "colorPicker"
                            Layout.fillWidth: true
                            visible: panel.open
                            color: LevelEditor.pickerColor
                            onPicked: function (picked) { LevelEditor.pickColor(picked) }
                        }
                    }
                }
            }
        }
    }
}
