// The lock settings reached from the settings menu: set a passcode (typed
// twice), the rows that follow, the recovery key alert ("Save" only with
// text, Cancel leaves the switch off), changing the code (the same code
// refused), and disabling, which removes the code and the key.
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
        name: "LockSettings"
        when: windowShown

        function initTestCase() { tryCompare(Shell, "splashDone", true) }
        function cleanupTestCase() { Fixture.setPasscode("") }

        function rowKeys() {
            return LockSettings.rows.map(function (r) { return r.key })
        }
        function openLockSettings() {
            Shell.showSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kLockRow"); return row !== null })
            mouseClick(row)
            var screen = null
            tryVerify(function () { screen = findChild(shell, "lockSettingsScreen"); return screen !== null })
            tryVerify(function () { return LockSettings.rows.length > 0 })
            return screen
        }
        function clickRow(key) {
            // Two clicks on one row in quick succession would be a double click.
            wait(500)
            var row = null
            tryVerify(function () { row = findChild(shell, "lockRow_" + key); return row !== null && row.visible })
            mouseClick(row)
        }
        function typeCode(code) {
            tryVerify(function () { return findChild(shell, "passInputScreen") !== null })
            tryCompare(PassInput, "attached", true)
            // The keypad's keys, as a click on each: the window lock may have
            // just replaced the screen, and the keyboard's focus follows later.
            for (var c of code)
                PassInput.digit(c)
        }
        function closeAll() {
            while (Shell.screens.length > 0)
                Shell.closeScreen(Shell.screens[Shell.screens.length - 1].className)
        }

        function test_a_setChangeAndDisable() {
            Fixture.setPasscode("")
            openLockSettings()
            compare(rowKeys(), ["kEnablePasscodeRow"])
            compare(LockSettings.rows[0].label, "Enable password")

            clickRow("kEnablePasscodeRow")
            compare(PassInput.title, "Pass Code")
            compare(PassInput.stage, 1, "a first code has no stage for the current one")
            typeCode("1357")
            tryCompare(PassInput, "stage", 2)
            typeCode("1357")
            // The entry closes a second later and the rows follow.
            tryCompare(LockSettings, "passcodeSet", true, 5000)
            tryVerify(function () { return findChild(shell, "passInputScreen") === null }, 5000)
            compare(LockRem.passcode(), "1357")
            compare(rowKeys(), ["kDisablePasscodeRow", "kChangePasscodeRow", "kSecretKeyRow"],
                    "no fingerprint row without a reader")

            // Change: the current code first, then the same code is refused.
            clickRow("kChangePasscodeRow")
            typeCode("1357")
            tryCompare(PassInput, "stage", 1)
            typeCode("1357")
            tryCompare(PassInput.digitCounts, 1, 0)
            compare(PassInput.stage, 1)
            compare(PassInput.stageLabels[1], "Enter new passcode")
            typeCode("8642")
            tryCompare(PassInput, "stage", 2)
            typeCode("8642")
            tryVerify(function () { return findChild(shell, "passInputScreen") === null }, 5000)
            compare(LockRem.passcode(), "8642")

            // Disable: asks for the code, then both secrets are gone.
            clickRow("kDisablePasscodeRow")
            compare(PassInput.title, "Disable")
            typeCode("8642")
            tryCompare(LockSettings, "passcodeSet", false, 5000)
            compare(LockRem.passcode(), "")
            compare(rowKeys(), ["kEnablePasscodeRow"])
            closeAll()
        }

        function test_b_recoveryKey() {
            Fixture.setPasscode("2468")
            // The settings are behind the gate.
            Shell.showSettings()
            typeCode("2468")
            tryVerify(function () { return findChild(shell, "settingsRow_kLockRow") !== null })
            mouseClick(findChild(shell, "settingsRow_kLockRow"))
            tryVerify(function () { return rowKeys().indexOf("kSecretKeyRow") >= 0 })
            compare(LockSettings.rows[rowKeys().indexOf("kSecretKeyRow")].switchOn, false)

            // Cancel: the switch goes back off and nothing is stored.
            clickRow("kSecretKeyRow")
            tryVerify(function () { return Presenter.current.title === "Password recovery key" })
            compare(Presenter.current.message,
                    "Enter the password recovery key to recover if you forget the password in the future")
            var save = findChild(shell, "alertButton1")
            compare(save.text, "Save")
            compare(save.enabled, false, "Save waits for text")
            findChild(shell, "alertButton0").clicked()
            tryVerify(function () { return Presenter.current.id === undefined })
            compare(LockSettings.rows[rowKeys().indexOf("kSecretKeyRow")].switchOn, false)
            compare(LockRem.secretKey(), "")

            // Save with a key: stored, switch on.
            clickRow("kSecretKeyRow")
            tryVerify(function () { return Presenter.current.title === "Password recovery key" })
            var field = findChild(shell, "alertField")
            field.forceActiveFocus()
            keyClick("b"); keyClick("l"); keyClick("u"); keyClick("e")
            save = findChild(shell, "alertButton1")
            tryCompare(save, "enabled", true)
            mouseClick(save)
            tryVerify(function () { return LockSettings.rows[rowKeys().indexOf("kSecretKeyRow")].switchOn })
            compare(LockRem.secretKey(), "blue")

            // Turning it off removes the key; the passcode stays.
            clickRow("kSecretKeyRow")
            tryVerify(function () { return !LockSettings.rows[rowKeys().indexOf("kSecretKeyRow")].switchOn })
            compare(LockRem.secretKey(), "")
            compare(LockRem.passcode(), "2468")
            closeAll()
            Fixture.setPasscode("")
        }
    }
}
