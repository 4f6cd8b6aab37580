// The application's content: the splash, the four tabs with their
// navigation (a bottom bar when narrow, a rail from Theme.wideWidth), the
// screens the core opens over the tabs, the alerts, and the keyboard
// shortcuts. Which tab shows and whether it may is the core's decision
// (Shell); this file only lays it out.
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Lumeo.Core

FocusScope {
    id: root
    property bool screenshotMode: false
    readonly property bool wide: width >= Theme.wideWidth
    readonly property var tabIcons: ["capture", "history", "summary", "map"]
    readonly property var tabFiles: ["CaptureTab.qml", "HistoryTab.qml", "SummaryTab.qml", "MapTab.qml"]
    // Tabs are made when first shown, so the start shows Capture at once.
    property var visited: [true, false, false, false]
    readonly property bool mainInterfaceUp: Shell.splashDone && Shell.journalError === "" && !Shell.locked
    readonly property bool screenOpen: Shell.screens.length > 0

    focus: true

    function showTab(index) {
        if (!Shell.selectTab(index))
            return false
        return true
    }

    Connections {
        target: Shell
        function onChanged() {
            if (!root.visited[Shell.currentTab]) {
                var v = root.visited.slice()
                v[Shell.currentTab] = true
                root.visited = v
            }
        }
    }

    // A restore replaced the journal: the tabs are made again on the new one.
    Connections {
        target: Backup
        function onAboutToReplaceJournal() { root.visited = [false, false, false, false] }
        function onJournalReplaced() {
            var v = [false, false, false, false]
            v[Shell.currentTab] = true
            root.visited = v
        }
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.background
    }

    // --- The main interface --------------------------------------------
    RowLayout {
        id: mainLayout
        anchors.fill: parent
        spacing: 0
        visible: root.mainInterfaceUp

        // Wide: a navigation rail on the left.
        Rectangle {
            Layout.fillHeight: true
            Layout.preferredWidth: 232
            visible: root.wide
            color: Theme.surface
            Rectangle { anchors.right: parent.right; width: 1; height: parent.height; color: Theme.separator }
            ColumnLayout {
                anchors.fill: parent
                anchors.margins: 16
                spacing: 6
                RowLayout {
                    Layout.bottomMargin: 18
                    Layout.topMargin: 8
                    spacing: 10
                    Image {
                        source: "qrc:/Lumeo/icons/lumeo.svg"
                        sourceSize: Qt.size(32, 32)
                        Accessible.ignored: true
                    }
                    Text {
                        text: "Lumeo"
                        color: Theme.text
                        font.pointSize: Theme.fontTitle
                        font.weight: Font.DemiBold
                    }
                }
                Repeater {
                    model: Shell.tabTitles
                    NavButton {
                        objectName: "railTab" + index
                        Layout.fillWidth: true
                        rail: true
                        text: L10n.tr(modelData)
                        iconName: root.tabIcons[index]
                        selected: Shell.currentTab === index
                        enabled: Shell.tabEnabled[index] === true
                        onClicked: root.showTab(index)
                    }
                }
                Item { Layout.fillHeight: true }
                NavButton {
                    objectName: "railSettings"
                    Layout.fillWidth: true
                    rail: true
                    text: L10n.tr("Settings")
                    iconName: "settings"
                    onClicked: Shell.showSettings()
                }
            }
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 0

            // Narrow: a header with the tab's title and the settings button.
            Rectangle {
                Layout.fillWidth: true
                Layout.preferredHeight: 56
                visible: !root.wide
                color: Theme.background
                Text {
                    anchors.left: parent.left
                    anchors.leftMargin: 20
                    anchors.verticalCenter: parent.verticalCenter
                    text: Shell.tabTitles.length > 0 ? L10n.tr(Shell.tabTitles[Shell.currentTab]) : ""
                    color: Theme.text
                    font.pointSize: Theme.fontHeadline
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
                RoundButton {
                    objectName: "settingsButton"
                    anchors.right: parent.right
                    anchors.rightMargin: 12
                    anchors.verticalCenter: parent.verticalCenter
                    flat: true
                    Accessible.name: L10n.tr("Settings")
                    icon.width: 0
                    contentItem: Icon { name: "settings"; color: Theme.text }
                    onClicked: Shell.showSettings()
                }
            }

            StackLayout {
                id: tabs
                objectName: "tabStack"
                Layout.fillWidth: true
                Layout.fillHeight: true
                currentIndex: Shell.currentTab
                Repeater {
                    model: 4
                    Loader {
                        objectName: "tabLoader" + index
                        active: root.visited[index] === true
                        source: root.tabFiles[index]
                        onLoaded: {
                            if (item.hasOwnProperty("wide"))
                                item.wide = Qt.binding(function () { return root.wide })
                        }
                    }
                }
            }

            // Narrow: the tab bar at the bottom.
            Rectangle {
                Layout.fillWidth: true
                Layout.preferredHeight: 68
                visible: !root.wide
                color: Theme.surface
                Rectangle { width: parent.width; height: 1; color: Theme.separator }
                RowLayout {
                    anchors.fill: parent
                    anchors.leftMargin: 8
                    anchors.rightMargin: 8
                    spacing: 0
                    Repeater {
                        model: Shell.tabTitles
                        NavButton {
                            objectName: "tab" + index
                            Layout.fillWidth: true
                            Layout.fillHeight: true
                            text: L10n.tr(modelData)
                            iconName: root.tabIcons[index]
                            selected: Shell.currentTab === index
                            enabled: Shell.tabEnabled[index] === true
                            onClicked: root.showTab(index)
                        }
                    }
                }
            }
        }
    }

    // --- Screens over the tabs (settings, editor, passcode entry) --------
    Repeater {
        model: Shell.screens
        Loader {
            anchors.fill: parent
            z: 10 + index
            source: modelData.url !== "" ? modelData.url : "UnavailableScreen.qml"
            onLoaded: {
                if (item.hasOwnProperty("className"))
                    item.className = modelData.className
                if (item.hasOwnProperty("wide"))
                    item.wide = Qt.binding(function () { return root.wide })
                item.forceActiveFocus()
            }
        }
    }

    // --- The journal cannot be opened ------------------------------------
    JournalErrorScreen {
        anchors.fill: parent
        z: 50
        visible: Shell.launchError !== "" || Shell.journalError !== ""
    }

    // --- Splash -----------------------------------------------------------
    Splash {
        anchors.fill: parent
        z: 100
        skip: root.screenshotMode
    }

    AlertHost {
        anchors.fill: parent
        z: 200
    }

    // --- Keyboard ---------------------------------------------------------
    Shortcut {
        sequence: "Ctrl+N"
        enabled: root.mainInterfaceUp
        onActivated: {
            if (Shell.screens.length === 0)
                root.showTab(0)
        }
    }
    // Alt+1..4 choose a tab (through the gate, as a click does).
    Repeater {
        model: 4
        Item {
            Shortcut {
                sequence: "Alt+" + (index + 1)
                enabled: root.mainInterfaceUp && !root.screenOpen
                onActivated: root.showTab(index)
            }
        }
    }
    Shortcut {
        sequence: StandardKey.Quit
        onActivated: Qt.quit()
    }
    Keys.onPressed: function (event) {
        if (!root.mainInterfaceUp || root.screenOpen || Shell.currentTab !== 0)
            return
        if (event.modifiers & (Qt.ControlModifier | Qt.AltModifier | Qt.MetaModifier))
            return
        if (event.key >= Qt.Key_0 && event.key <= Qt.Key_9) {
            var level = event.key === Qt.Key_0 ? 10 : event.key - Qt.Key_0
            if (Capture.chooseLevel(level))
                event.accepted = true
        }
    }
}
