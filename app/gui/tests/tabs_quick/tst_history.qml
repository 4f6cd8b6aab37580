// The History tab by objectName: choose a record and see its detail, narrow
// and wide; filter by a period and clear it; open the calendar and a day;
// open the gallery from a photo; delete a record through the warning.
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
        name: "History"
        when: windowShown

        // Keeps a picture of the screen as a test artefact.
        function keep(name) {
            var dir = Fixture.artefactDir()
            if (dir !== "")
                grabImage(top).save(dir + "/" + name + ".png")
        }

        function init() {
            tryCompare(Shell, "splashDone", true)
            top.width = 420
            Shell.selectTab(1)
            tryVerify(function () { return History.controller !== null })
            tryVerify(function () { return findChild(shell, "historyList") !== null })
            var stack = findChild(shell, "historyStack")
            while (stack.depth > 1)
                stack.pop()
            History.controller.calendarMode = false
        }

        function list() { return findChild(shell, "historyList") }

        function test_a_choosingARowShowsItsDetail() {
            var view = list()
            verify(view.count > 10)
            compare(view.count, Fixture.recordCount())
            view.positionViewAtIndex(view.count - 1, ListView.End)
            wait(0)
            var row = view.itemAtIndex(view.count - 1)
            verify(row !== null)
            mouseClick(row)
            compare(History.controller.selectedIndex, view.count - 1)
            var detail = findChild(shell, "historyDetail")
            tryVerify(function () { return detail.visible })
            compare(findChild(detail, "historyDetailLevel").text, Theme.levelText(row.level))
            verify(findChild(detail, "historyDetailDate").text.length > 0)
            // The keyboard moves the selection.
            view.forceActiveFocus()
            keyClick(Qt.Key_Up)
            compare(History.controller.selectedIndex, view.count - 2)

            // Wide: list and detail side by side.
            top.width = 1100
            wait(0)
            tryVerify(function () { return detail.x > view.x + view.width - 1 })
            keep("history-wide-selected")
        }

        function test_b_aPeriodNarrowsTheListAndClearRestoresIt() {
            var all = list().count
            mouseClick(findChild(shell, "historyFilterButton"))
            var sheet = findChild(shell, "historyStack").currentItem.periodSheet
            tryVerify(function () { return sheet.opened })
            var from = findChild(sheet, "historyPeriodFrom")
            var to = findChild(sheet, "historyPeriodTo")
            // The sheet opens on the whole journal.
            verify(from.text.match(/^\d{4}-\d\d-\d\d$/))
            var last = to.text
            var parts = last.split("-")
            var start = new Date(Number(parts[0]), Number(parts[1]) - 1, Number(parts[2]) - 6)
            from.text = Qt.formatDate(start, "yyyy-MM-dd")
            mouseClick(findChild(sheet, "historyPeriodDone"))
            tryVerify(function () { return !sheet.visible })
            verify(History.controller.filtered)
            verify(list().count > 0 && list().count < all, "a week of " + all + " records: " + list().count)
            verify(findChild(shell, "historyPeriodText").text.indexOf("Today") >= 0)
            keep("history-period")
            mouseClick(findChild(shell, "historyPeriodClear"))
            verify(!History.controller.filtered)
            compare(list().count, all)
        }

        function test_c_theCalendarOpensADayWithRecords() {
            mouseClick(findChild(shell, "historyCalendarMode"))
            verify(History.controller.calendarMode)
            var title = findChild(shell, "calendarMonthTitle")
            tryVerify(function () { return title.visible && title.text.length > 0 })
            var calendar = History.controller.calendar
            var month = calendar.currentMonthIndex
            // The newest day with records in this month.
            var day = null
            for (var d = 31; d >= 1 && day === null; --d) {
                var button = findChild(shell, "calendarDay_" + month + "_" + d)
                if (button && button.exists)
                    day = button
            }
            verify(day !== null, "a day with records this month")
            keep("history-calendar")
            mouseClick(day)
            var stack = findChild(shell, "historyStack")
            tryCompare(stack, "depth", 2)
            verify(stack.currentItem.history.count > 0)
            keep("history-day")
            mouseClick(findChild(stack.currentItem, "historyBack"))
            tryCompare(stack, "depth", 1)
            // Months farther back come into view and go again: a screenful of
            // month views serves them all.
            calendar.pickMonth(1970, 1)
            compare(calendar.currentMonthIndex, 0)
            verify(calendar.rowCount() <= 6)
            mouseClick(findChild(shell, "historyListMode"))
            verify(!History.controller.calendarMode)
        }

        function test_d_aPhotoOpensTheGalleryAndItsPageSelectsTheRecord() {
            compare(Fixture.addPhotos(3), 3)
            var view = list()
            History.controller.select(view.count - 1)
            var photo = findChild(shell, "historyDetailPhoto")
            tryVerify(function () { return photo.visible })
            waitForItemPolished(photo.parent)
            // The detail pane settles its layout over a frame or two.
            wait(100)
            mouseClick(photo)
            var stack = findChild(shell, "historyStack")
            tryCompare(stack, "depth", 2)
            var gallery = stack.currentItem.gallery
            compare(gallery.count, 3)
            compare(gallery.currentIndex, 2)
            // The keyboard pages back to the first photo.
            stack.currentItem.forceActiveFocus()
            keyClick(Qt.Key_Left)
            keyClick(Qt.Key_Left)
            tryCompare(gallery, "currentIndex", 0)
            keep("history-gallery")
            // The page shown is selected in the list beneath.
            tryCompare(History.controller, "selectedIndex", view.count - 3)
            mouseClick(findChild(stack.currentItem, "galleryBack"))
            tryCompare(stack, "depth", 1)
        }

        function alertButton(title) {
            for (var i = 0; i < 4; ++i) {
                var b = findChild(shell, "alertButton" + i)
                if (b && b.visible && b.text === title)
                    return b
            }
            return null
        }

        function test_e_deleteAsksFirstThenRemovesTheRecord() {
            var before = Fixture.recordCount()
            var view = list()
            History.controller.select(view.count - 1)
            var remove = findChild(shell, "historyDelete")
            tryVerify(function () { return remove.visible })
            waitForItemPolished(remove.parent)
            wait(100)
            mouseClick(remove)
            var title = findChild(shell, "alertTitle")
            tryVerify(function () { return title !== null && title.visible })
            compare(title.text, "Wait a moment!")
            // "No" keeps the record.
            var no = alertButton("No")
            verify(no !== null)
            waitForItemPolished(no.parent)
            mouseClick(no)
            tryVerify(function () { return !title.visible })
            Fixture.drain()
            compare(Fixture.recordCount(), before)
            // "Yes" deletes it, and the record before it is selected.
            mouseClick(remove)
            tryVerify(function () { return title.visible })
            var yes = alertButton("Yes")
            verify(yes !== null)
            waitForItemPolished(yes.parent)
            wait(20)
            mouseClick(yes)
            tryVerify(function () { return Fixture.recordCount() === before - 1 }, 3000)
            tryCompare(view, "count", before - 1)
            compare(History.controller.selectedIndex, view.count - 1)
        }
    }
}
