// Switching tabs with the mouse and the keyboard, in the narrow and the wide
// layout, on a journal with records (so every tab is enabled).
import QtQuick
import QtTest
import Lumeo
import Lumeo.Core

Item {
    id: top
    width: 420
    height: 760

    AppShell {
        id: shell
        anchors.fill: parent
        screenshotMode: true
    }

    TestCase {
        name: "Tabs"
        when: windowShown

        function init() {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(0)
            top.width = 420
        }

        function test_bottomBarSwitchesTabs() {
            compare(Shell.currentTab, 0)
            verify(findChild(shell, "captureTab").visible)
            for (var i = 1; i < 4; ++i) {
                var button = findChild(shell, "tab" + i)
                verify(button.enabled, "tab " + i + " enabled with records")
                mouseClick(button)
                compare(Shell.currentTab, i)
            }
            verify(findChild(shell, "mapTab").visible)
            verify(!findChild(shell, "captureTab").visible)
            mouseClick(findChild(shell, "tab0"))
            compare(Shell.currentTab, 0)
        }

        function test_wideLayoutUsesTheRail() {
            top.width = 1100
            wait(0)
            verify(findChild(shell, "railTab2").visible)
            verify(!findChild(shell, "tab2").visible)
            mouseClick(findChild(shell, "railTab2"))
            compare(Shell.currentTab, 2)
            verify(findChild(shell, "summaryTab").visible)
        }

        function test_ctrlNComesBackToCapture() {
            Shell.selectTab(1)
            compare(Shell.currentTab, 1)
            shell.forceActiveFocus()
            keySequence("Ctrl+N")
            compare(Shell.currentTab, 0)
        }
    }
}
