// The export screen by objectName, on the sample journal: a range picked in
// the date dialog and its PDF report read back by pdfinfo, saved elsewhere,
// mailed and opened; a report cancelled midway leaves no file; the CSV;
// photos to a folder where some are already present.
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

    // Presses Cancel as soon as the report is under way (the export lets
    // the window handle events while it works).
    property bool cancelWhenUnderWay: false
    Connections {
        target: Export
        function onChanged() {
            if (top.cancelWhenUnderWay && Export.indicator !== "" && Export.progress > 0) {
                top.cancelWhenUnderWay = false
                test.findChild(shell, "exportCancel").clicked()
            }
        }
    }

    TestCase {
        id: test
        name: "Export"
        when: windowShown

        function screen() {
            tryCompare(Shell, "splashDone", true)
            var found = findChild(shell, "exportScreen")
            if (found)
                return found
            Shell.showSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kExportRow"); return row !== null })
            mouseClick(row)
            tryVerify(function () { found = findChild(shell, "exportScreen"); return found !== null })
            tryCompare(Export, "ready", true)
            tryVerify(function () { return findChild(found, "exportRow_from") !== null && findChild(found, "exportRow_from").width > 0 })
            waitForRendering(found)
            return found
        }

        function wholeJournal() {
            Export.setFrom(new Date(2000, 0, 1, 12))
            Export.setTo(new Date(2100, 0, 1, 12))
        }

        function test_a_rangeReportAndItsShareActions() {
            var s = screen()
            // The dialog picks a day; a From after To moves To along.
            mouseClick(findChild(s, "exportRow_from"))
            var dialog = findChild(s, "exportDateDialog")
            tryCompare(dialog, "opened", true)
            var to = Export.to
            findChild(dialog, "exportYear").value = to.getFullYear()
            findChild(dialog, "exportMonth").value = to.getMonth() + 1
            findChild(dialog, "exportDay").value = to.getDate()
            mouseClick(findChild(dialog, "exportDateDone"))
            tryCompare(dialog, "opened", false)
            compare(Export.from.getDate(), to.getDate())
            compare(Export.fromText, Export.toText)
            // A To in the future is clamped to today.
            Export.setTo(new Date(2100, 0, 1, 12))
            verify(Export.to.getTime() < new Date(2100, 0, 1).getTime())

            wholeJournal()
            mouseClick(findChild(s, "exportPdf"))
            tryVerify(function () { return Export.file !== "" }, 60000)
            compare(Export.file, ExportFixture.documents() + "/mood.pdf")
            tryCompare(Export, "busy", false)
            compare(Export.outcome, "")
            verify(ExportFixture.pdfPages(Export.file) >= 3, "pdfinfo reads the report")
            compare(findChild(s, "exportFileName").text, "mood.pdf")
            // The same range again: the report is offered as it is.
            var size = ExportFixture.size(Export.file)
            mouseClick(findChild(s, "exportPdf"))
            tryVerify(function () { return Export.file !== "" && !Export.busy }, 30000)
            compare(ExportFixture.size(Export.file), size)

            // Save As: whole under the chosen name; a place that cannot be
            // written gets a message and no file.
            var copy = ExportFixture.scratch() + "/My report.pdf"
            s.saveChosen("file://" + copy)
            compare(s.shareError, "")
            compare(ExportFixture.size(copy), size)
            s.saveChosen("file:///proc/lumeo-cannot/report.pdf")
            verify(s.shareError !== "")
            verify(findChild(s, "exportShareError").visible)
            verify(!ExportFixture.exists("/proc/lumeo-cannot/report.pdf"))

            // E-mail and Open go to the desktop's programs.
            mouseClick(findChild(s, "exportEmail"))
            compare(s.shareError, "")
            var mail = ExportFixture.scratch() + "/xdg-email.args"
            tryVerify(function () { return ExportFixture.read(mail).indexOf("--attach\n" + Export.file + "\n") >= 0 },
                      10000, ExportFixture.read(mail))
            mouseClick(findChild(s, "exportOpen"))
            compare(s.shareError, "")
            var opened = ExportFixture.scratch() + "/xdg-open.args"
            tryVerify(function () { return ExportFixture.read(opened) === Export.file + "\n" }, 10000,
                      ExportFixture.read(opened))
        }

        function test_b_cancelMidReportLeavesNoFile() {
            var s = screen()
            ExportFixture.remove(ExportFixture.documents() + "/mood.pdf")
            // Another range, so that nothing is reused.
            Export.setFrom(new Date(2001, 0, 1, 12))
            top.cancelWhenUnderWay = true
            mouseClick(findChild(s, "exportPdf"))
            tryCompare(Export, "busy", true)
            tryCompare(Export, "busy", false, 60000)
            verify(!top.cancelWhenUnderWay, "Cancel was pressed while the report was made")
            compare(Export.file, "")
            compare(ExportFixture.files(ExportFixture.documents()).filter(function (f) {
                return f.indexOf("mood") >= 0 && f.indexOf(".csv") < 0 }), [])
        }

        function test_c_csvOfTheRange() {
            var s = screen()
            wholeJournal()
            mouseClick(findChild(s, "exportCsv"))
            tryVerify(function () { return Export.file !== "" && !Export.busy }, 30000)
            verify(Export.fileName.match(/^mood_.*\.csv$/), Export.fileName)
            var text = ExportFixture.read(Export.file)
            verify(text.indexOf("Day of week") >= 0, "the labels")
            // One row a record: date, day, hour, minute and level first.
            var rows = text.split("\n").filter(function (l) { return l.match(/^"[^"]*","[^"]*","\d+","\d+","\d+",/) })
            compare(rows.length, Fixture.recordCount())
        }

        function test_d_photosToAFolderWithSomeThere() {
            var s = screen()
            wholeJournal()
            compare(Fixture.addPhotos(3), 3)
            var dir = ExportFixture.scratch() + "/Photos"
            s.photosFolderChosen("file://" + dir)
            tryCompare(Export, "busy", false, 30000)
            compare(Export.photoSummary, "3 copied, 0 replaced, 0 already there")
            var names = ExportFixture.files(dir)
            compare(names.length, 3)
            var sizes = names.map(function (n) { return ExportFixture.size(dir + "/" + n) })
            // One gone, one changed, one as it was: only the first two go again.
            ExportFixture.remove(dir + "/" + names[0])
            ExportFixture.write(dir + "/" + names[1], "not the photo")
            s.photosFolderChosen("file://" + dir)
            tryCompare(Export, "busy", false, 30000)
            compare(Export.photoSummary, "1 copied, 1 replaced, 1 already there")
            compare(ExportFixture.files(dir), names)
            for (var i = 0; i < names.length; ++i)
                compare(ExportFixture.size(dir + "/" + names[i]), sizes[i])
            // Nothing new: the core says so.
            s.photosFolderChosen("file://" + dir)
            tryVerify(function () { return Presenter.current.id !== undefined })
            compare(Presenter.current.title, "No photos to export")
            Presenter.answer(Presenter.current.id, Presenter.current.actions[0].result)
            tryCompare(Export, "busy", false)
        }
    }
}
