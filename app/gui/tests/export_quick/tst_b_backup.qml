// The backup screen by objectName: "Back up now" writes an archive that
// `lumeo backup verify` accepts; "Restore from archive…" asks first and then
// History shows the restored records; `lumeo backup restore` run while the
// window is open does the same.
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
        name: "Backup"
        when: windowShown

        function screen() {
            tryCompare(Shell, "splashDone", true)
            var found = findChild(shell, "backupScreen")
            if (found)
                return found
            while (Shell.screens.length > 0)
                Shell.closeScreen(Shell.screens[Shell.screens.length - 1].className)
            Shell.showSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kBackupRow"); return row !== null })
            mouseClick(row)
            tryVerify(function () { found = findChild(shell, "backupScreen"); return found !== null })
            return found
        }

        // An archive of another journal with `comments` as its records.
        function archiveOf(name, comments) {
            var home = ExportFixture.scratch() + "/" + name
            for (var i = 0; i < comments.length; ++i)
                compare(Fixture.lumeo(["--home", home, "add", String(4 + i), "--comment", comments[i]]), 0,
                        Fixture.lastOutput())
            compare(Fixture.lumeo(["--home", home, "backup", "create", "--to", ExportFixture.scratch()]), 0,
                    Fixture.lastOutput())
            return Fixture.lastOutput().trim().split("\n")[0]
        }

        function historyCount() {
            Shell.selectTab(1)
            var list = null
            tryVerify(function () { list = findChild(shell, "historyList"); return list !== null && History.controller !== null })
            return list.count
        }

        function test_a_backUpNowWritesAnArchiveThatVerifies() {
            var s = screen()
            var file = ExportFixture.scratch() + "/Journal.backup"
            s.backupFileChosen("file://" + file)
            compare(Backup.result, "Backup completed!")
            verify(ExportFixture.exists(file))
            compare(Fixture.lumeo(["backup", "verify", file]), 0, Fixture.lastOutput())
            verify(Fixture.lastOutput().indexOf(String(Fixture.recordCount())) >= 0, Fixture.lastOutput())
        }

        function test_b_restoreFromTheScreenRebuildsHistory() {
            verify(historyCount() > 10)
            var archive = archiveOf("other", ["Restored from the archive #restored"])
            var s = screen()
            s.archiveChosen("file://" + archive)
            tryVerify(function () { return Presenter.current.id !== undefined })
            verify(Presenter.current.message.indexOf("Are you sure you want to recover the data from") === 0,
                   Presenter.current.message)
            var yes = Presenter.current.actions.filter(function (a) { return a.title === "Yes" })[0]
            Presenter.answer(Presenter.current.id, yes.result)
            tryCompare(Backup, "result", "Restore completed!", 30000)
            compare(Fixture.recordCount(), 1)
            Shell.closeScreen("MoodBackupViewController")
            Shell.closeScreen("MoodSettingsViewController")
            tryCompare(Shell.screens, "length", 0)
            compare(historyCount(), 1)
            compare(Fixture.recordsWithComment("Restored from the archive").length, 1)
        }

        function test_c_restoreByTheCommandLineWhileTheWindowIsOpen() {
            compare(historyCount(), 1)
            var generation = Backup.journalGeneration
            var archive = archiveOf("third", ["From the command line, first", "From the command line, second"])
            compare(Fixture.lumeo(["--home", Fixture.home(), "backup", "restore", archive, "--yes"]), 0,
                    Fixture.lastOutput())
            tryVerify(function () { return Backup.journalGeneration > generation }, 20000)
            tryVerify(function () { return historyCount() === 2 }, 10000)
            compare(Fixture.recordsWithComment("From the command line").length, 2)
        }
    }
}
