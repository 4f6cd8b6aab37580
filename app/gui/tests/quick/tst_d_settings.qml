// The settings menu: opened from the header, its rows in the core's order,
// the colour scheme chosen there, and a row whose screen the desktop app
// does not have yet leads back.
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
        name: "Settings"
        when: windowShown

        function openSettings() {
            tryCompare(Shell, "splashDone", true)
            mouseClick(findChild(shell, "settingsButton"))
            var screen = null
            tryVerify(function () { screen = findChild(shell, "settingsScreen"); return screen !== null })
            return screen
        }
        function cleanup() {
            while (Shell.screens.length > 0)
                Shell.closeScreen(Shell.screens[Shell.screens.length - 1].className)
            Theme.mode = "system"
        }

        function test_rowsInOrder() {
            openSettings()
            var keys = Settings.rows.filter(function (r) { return r.visible }).map(function (r) { return r.key })
            compare(keys.slice(0, 5), ["kMoodsRow", "kTemplateRow", "kChartsRow", "kMapRow", "kRemindersRow"])
            verify(keys.indexOf("kLockRow") > 0)
            verify(keys.indexOf("kWatchRow") < 0, "no watch is paired")
        }

        function test_colourSchemeOverride() {
            openSettings()
            mouseClick(findChild(shell, "theme_dark"))
            compare(Theme.mode, "dark")
            verify(Theme.dark)
            mouseClick(findChild(shell, "theme_light"))
            verify(!Theme.dark)
            mouseClick(findChild(shell, "theme_system"))
            compare(Theme.mode, "system")
        }

        function test_rowPushesItsScreenAndBackCloses() {
            var screen = openSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kExportRow"); return row !== null })
            mouseClick(row)
            tryCompare(Shell.screens, "length", 2)
            compare(Shell.screens[1].className, "MoodExportViewController")
            var back = null
            tryVerify(function () { back = findChild(shell, "exportBack"); return back !== null && back.visible })
            mouseClick(back)
            tryCompare(Shell.screens, "length", 1)
            mouseClick(findChild(shell, "settingsBack"))
            tryCompare(Shell.screens, "length", 0)
        }
    }
}
