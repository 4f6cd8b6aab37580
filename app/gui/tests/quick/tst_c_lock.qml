// The lock in front of all but Capture: with a passcode set, History asks
// for it; a wrong code shakes and keeps the tab shut; the right one opens
// it; cancelling leaves the tab as it was. Hiding the window ends the
// unlock: back on Capture, History asks again.
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
        name: "Lock"
        when: windowShown

        function init() {
            tryCompare(Shell, "splashDone", true)
            Fixture.setPasscode("")
            Shell.selectTab(0)
            Fixture.setPasscode("2468")
        }
        function cleanupTestCase() { Fixture.setPasscode("") }

        function typeCode(code) {
            for (var c of code)
                keyClick(c)
        }
        function entryScreen() {
            var screen = null
            tryVerify(function () { screen = findChild(shell, "passInputScreen"); return screen !== null })
            tryCompare(PassInput, "attached", true)
            return screen
        }

        function test_captureStaysOpen() {
            verify(Shell.selectTab(0))
            compare(Shell.currentTab, 0)
            compare(Shell.screens.length, 0)
        }

        function test_gateAsksAndOpensWithTheRightCode() {
            verify(!Shell.selectTab(1), "History waits for the code")
            compare(Shell.currentTab, 0)
            var screen = entryScreen()
            screen.forceActiveFocus()
            typeCode("1111")
            // The shake wipes the wrong code; the tab stays shut.
            tryCompare(PassInput.digitCounts, 0, 0)
            compare(Shell.currentTab, 0)
            typeCode("2468")
            tryCompare(Shell, "currentTab", 1)
            tryCompare(Shell.screens, "length", 0)
            // Unlocked for this foreground period: no second question.
            verify(Shell.selectTab(2))
        }

        function test_cancelLeavesTheTab() {
            verify(!Shell.selectTab(2))
            var screen = entryScreen()
            verify(PassInput.cancellable)
            screen.forceActiveFocus()
            keyClick(Qt.Key_Escape)
            tryCompare(Shell.screens, "length", 0)
            compare(Shell.currentTab, 0)
        }

        function test_hidingTheWindowLocksAgain() {
            verify(!Shell.selectTab(1))
            var screen = entryScreen()
            screen.forceActiveFocus()
            typeCode("2468")
            tryCompare(Shell, "currentTab", 1)
            tryCompare(Shell.screens, "length", 0)
            // Back from hiding: on Capture, and History asks again.
            Shell.windowHidden()
            Shell.windowShown()
            compare(Shell.currentTab, 0)
            compare(Shell.locked, false)
            verify(!Shell.selectTab(1))
            entryScreen()
            PassInput.cancel()
            tryCompare(Shell.screens, "length", 0)
        }

    }
}
