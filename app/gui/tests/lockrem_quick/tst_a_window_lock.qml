// The whole-window lock after the window was hidden: with the passcode
// screen of the tab gate up, hiding and showing the real window puts the
// entry screen over the whole window, nothing of the journal is visible
// until the right code, which brings the tabs back. With nothing open,
// the window comes back on Capture and only the other tabs ask.
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
        name: "WindowLock"
        when: windowShown

        function initTestCase() {
            tryCompare(Shell, "splashDone", true)
            LockWindow.watch(top.Window.window)
        }
        function init() {
            Fixture.setPasscode("")
            Shell.selectTab(0)
            Fixture.setPasscode("2468")
        }
        function cleanupTestCase() { Fixture.setPasscode("") }

        function hideAndShow() {
            var window = top.Window.window
            window.hide()
            tryCompare(LockWindow, "background", true)
            window.show()
            tryCompare(LockWindow, "background", false)
        }
        function typeCode(code) {
            tryVerify(function () { return findChild(shell, "passInputScreen") !== null })
            tryCompare(PassInput, "attached", true)
            // The keypad's keys, as a click on each: the window lock may have
            // just replaced the screen, and the keyboard's focus follows later.
            for (var c of code)
                PassInput.digit(c)
        }

        function test_hiddenWithTheEntryScreenUpLocksTheWholeWindow() {
            verify(!Shell.selectTab(1), "History asks for the code")
            tryCompare(Shell.screens, "length", 1)
            hideAndShow()
            verify(Shell.locked, "the entry screen is the window's root")
            // Nothing of the journal shows behind it.
            var tabs = findChild(shell, "tabStack")
            compare(tabs.visible, false)
            compare(PassInput.cancellable, false, "the window lock cannot be cancelled")
            // Coming back again keeps it up, and a wrong code only shakes.
            hideAndShow()
            verify(Shell.locked)
            typeCode("1111")
            tryCompare(PassInput.digitCounts, 0, 0)
            verify(Shell.locked)
            compare(tabs.visible, false)
            typeCode("2468")
            tryCompare(Shell, "locked", false)
            compare(tabs.visible, true)
            compare(Shell.currentTab, 0)
            // Unlocked now: History opens without asking.
            verify(Shell.selectTab(1))
        }

        function test_hiddenWithNothingOpenComesBackOnCapture() {
            verify(!Shell.selectTab(1))
            typeCode("2468")
            tryCompare(Shell, "currentTab", 1)
            tryCompare(Shell.screens, "length", 0)
            hideAndShow()
            verify(!Shell.locked)
            compare(Shell.currentTab, 0, "History is not left on screen")
            verify(!Shell.selectTab(1), "and asks again")
            tryCompare(Shell.screens, "length", 1)
            PassInput.cancel()
            tryCompare(Shell.screens, "length", 0)
        }

        function test_aScreenLockCountsAsHidingTheWindow() {
            verify(!Shell.selectTab(2))
            tryCompare(Shell.screens, "length", 1)
            LockWindow.setScreenLocked(true)
            verify(LockWindow.background)
            LockWindow.setScreenLocked(false)
            verify(Shell.locked)
            typeCode("2468")
            tryCompare(Shell, "locked", false)
        }
    }
}
