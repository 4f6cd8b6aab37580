// The reminder screens from the settings menu, checked against what
// `lumeo reminders list --json` reads from the same journal: add a fixed
// reminder with its own text and sound (the picker plays all but the
// desktop's sound), edit it into a window, the editor's count range, a
// stored count of 250 shown and saved as 100, switch one off, delete one,
// and the notification message.
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
        name: "Reminders"
        when: windowShown

        function initTestCase() {
            tryCompare(Shell, "splashDone", true)
            // The command line on this journal must not need a code.
            Fixture.setPasscode("")
        }

        function typeText(text) {
            for (var c of text)
                keyClick(c)
        }
        function cli() { return Fixture.lumeoJson(["reminders", "list"]) }
        function find(name) {
            var item = null
            tryVerify(function () { item = findChild(shell, name); return item !== null && item.visible },
                      5000, name)
            return item
        }
        // A click on a fresh screen: the screen that took the previous click
        // may have gone with it, so the pointer first moves onto the new one.
        function click(name) {
            var item = find(name)
            mouseMove(item)
            wait(20)
            mouseClick(item)
        }
        function openList() {
            Shell.showSettings()
            click("settingsRow_kRemindersRow")
            find("reminderListScreen")
        }
        function leaveList() {
            click("reminderListBack")
            tryVerify(function () { return findChild(shell, "reminderListScreen") === null })
            Shell.closeScreen("MoodSettingsViewController")
            tryCompare(Shell.screens, "length", 0)
        }
        function setSpin(name, value) {
            var spin = find(name)
            spin.value = value
            spin.valueModified()
        }
        function rowOf(listJson, predicate) {
            for (var i = 0; i < listJson.reminders.length; ++i)
                if (predicate(listJson.reminders[i]))
                    return listJson.reminders[i]
            return null
        }

        function test_a_addAFixedReminder() {
            openList()
            var before = cli().reminders.length
            compare(Reminders.rows.length, before, "the screen lists what the journal holds")
            click("reminderAdd")
            find("reminderEditorScreen")
            // A new reminder's defaults.
            verify(ReminderEditor.isNew)
            compare(ReminderEditor.periodic, false)
            compare(ReminderEditor.pickerHour, 10)
            compare(ReminderEditor.pickerMinute, 0)
            compare(ReminderEditor.soundName, "Default")
            compare(ReminderEditor.count, 1)
            setSpin("reminderHour", 7)
            setSpin("reminderMinute", 45)
            var text = find("reminderTextField")
            text.forceActiveFocus()
            typeText("Walk?")
            var templ = find("reminderTemplateField")
            templ.forceActiveFocus()
            typeText("#walk ")

            // The sound picker: the check follows, each sound but the
            // desktop's own is played.
            click("reminderSoundRow")
            find("reminderSoundScreen")
            LockRem.clearSounds()
            verify(find("reminderSoundCheck0").visible)
            click("reminderSound4")
            tryVerify(function () { return ReminderEditor.sounds[4].checked })
            compare(LockRem.soundsPlayed(), ["Doorbell.mp3"])
            click("reminderSound0")
            compare(LockRem.soundsPlayed(), ["Doorbell.mp3"], "no preview of the desktop's sound")
            click("reminderSound5")
            compare(LockRem.soundsPlayed(), ["Doorbell.mp3", "Gong big.mp3"])
            click("reminderSoundBack")
            tryCompare(ReminderEditor, "soundName", "Gong big")

            click("reminderSave")
            tryVerify(function () { return findChild(shell, "reminderEditorScreen") === null })
            var after = cli()
            compare(after.reminders.length, before + 1)
            var added = rowOf(after, function (r) { return r.at === "07:45" })
            verify(added !== null, JSON.stringify(after))
            compare(added.enabled, true)
            compare(added.kind, "fixed")
            compare(added.text, "Walk?")
            compare(added.template, "#walk ")
            compare(added.sound, "Gong big.mp3")
            compare(Reminders.rows.length, before + 1)
            leaveList()
        }

        function test_b_editIntoAWindowWithinTheCountRange() {
            openList()
            var list = cli()
            var index = list.reminders.findIndex(function (r) { return r.at === "07:45" })
            verify(index >= 0, JSON.stringify(list))
            click("reminderEdit" + index)
            find("reminderEditorScreen")
            verify(!ReminderEditor.isNew)
            compare(ReminderEditor.reminderText, "Walk?")
            click("reminderPeriodic")
            verify(ReminderEditor.periodic)
            compare(ReminderEditor.pickerVisible, false, "a window hides the picker until an end is chosen")
            click("reminderFrom")
            setSpin("reminderHour", 9)
            setSpin("reminderMinute", 0)
            click("reminderTo")
            compare(ReminderEditor.remindType, 2)
            setSpin("reminderHour", 17)
            setSpin("reminderMinute", 30)
            // The count stays in the editor's range, whatever comes in.
            var count = find("reminderCount")
            compare(count.from, 1)
            compare(count.to, 100)
            ReminderEditor.setCount(0)
            compare(ReminderEditor.count, 1)
            ReminderEditor.setCount(10000)
            compare(ReminderEditor.count, 100)
            compare(count.value, 100)
            setSpin("reminderCount", 4)
            compare(ReminderEditor.count, 4)
            click("reminderRandom")
            verify(ReminderEditor.random)
            click("reminderSave")
            tryVerify(function () { return findChild(shell, "reminderEditorScreen") === null })

            var edited = rowOf(cli(), function (r) { return r.from === "09:00" && r.to === "17:30" })
            verify(edited !== null)
            compare(edited.kind, "random")
            compare(edited.count, 4)
            compare(edited.text, "Walk?")
            verify(edited.moments.length > 0 && edited.moments.length <= 4, "a fresh draw on save")
            leaveList()
        }

        function test_c_aStoredCountOutOfRangeIsClampedBySaving() {
            LockRem.storeWindowReminder(250)
            openList()
            var list = cli()
            var index = list.reminders.findIndex(function (r) { return r.count === 250 })
            verify(index >= 0, JSON.stringify(list))
            click("reminderEdit" + index)
            find("reminderEditorScreen")
            compare(ReminderEditor.count, 100)
            compare(find("reminderCount").value, 100)
            click("reminderSave")
            tryVerify(function () { return findChild(shell, "reminderEditorScreen") === null })
            list = cli()
            verify(rowOf(list, function (r) { return r.count === 250 }) === null)
            verify(rowOf(list, function (r) { return r.count === 100 }) !== null)
            leaveList()
        }

        function test_d_switchOffAndDelete() {
            openList()
            var list = cli()
            var n = list.reminders.length
            verify(n >= 2)
            // The list's first row is the fixed one first in its order.
            var firstOn = list.reminders[0].enabled
            click("reminderSwitch0")
            compare(cli().reminders[0].enabled, !firstOn, "a switch is stored at once")
            wait(500) // not a double click
            click("reminderSwitch0")
            compare(cli().reminders[0].enabled, firstOn)

            // A deletion is kept when the list is left.
            var gone = JSON.stringify(list.reminders[n - 1])
            click("reminderDelete" + (n - 1))
            compare(Reminders.rows.length, n - 1)
            compare(cli().reminders.length, n, "not stored before the list is left")
            leaveList()
            list = cli()
            compare(list.reminders.length, n - 1)
        }

        function test_e_deletingAllShowsTheEmptyLabelAndStaysEmpty() {
            openList()
            while (Reminders.rows.length > 0) {
                click("reminderDelete0")
                wait(500) // not a double click
            }
            verify(Reminders.empty)
            tryCompare(find("reminderEmpty"), "opacity", 1)
            leaveList()
            compare(cli().reminders.length, 0, "an empty list is stored; the factory ones do not come back")
        }

        function test_f_notificationMessage() {
            openList()
            click("reminderMessageRow")
            var field = find("reminderTextField")
            field.forceActiveFocus()
            field.selectAll()
            typeText("Time for a check-in")
            keyClick(Qt.Key_Return)
            tryVerify(function () { return findChild(shell, "reminderTextScreen") === null })
            compare(Reminders.message, "Time for a check-in")
            compare(cli().text, "Time for a check-in")
            leaveList()
        }
    }
}
