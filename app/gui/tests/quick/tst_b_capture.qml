// Capturing: a level from the keyboard, a comment with a tag and a value
// typed into the editor, saved and found in the store; a new record
// cancelled is gone; an edit cancelled is restored; a tag renamed in the
// tag panel is renamed in the journal.
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
        name: "Capture"
        when: windowShown

        function init() {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(0)
            if (Editor.active) {  // a failed test left its editor open
                Editor.cancel()
                answerAlert("Yes")
            }
            compare(Editor.active, false)
            tryVerify(function () { return findChild(shell, "levelTile1") !== null })
        }

        // The editor's text area, once its screen is up.
        function editorText() {
            var area = null
            tryVerify(function () { area = findChild(shell, "editorText"); return area !== null })
            return area
        }

        function answerAlert(buttonTitle) {
            tryVerify(function () { return Presenter.current.id !== undefined })
            var actions = Presenter.current.actions
            for (var i = 0; i < actions.length; ++i) {
                if (actions[i].title === buttonTitle) {
                    Presenter.answer(Presenter.current.id, actions[i].result)
                    return
                }
            }
            fail("no button " + buttonTitle + " in " + JSON.stringify(actions))
        }

        function test_captureWithTagAndValue() {
            var before = Fixture.recordCount()
            shell.forceActiveFocus()
            keyClick(Qt.Key_7)
            tryCompare(Editor, "active", true)
            compare(Editor.level, 7)
            var area = editorText()
            area.forceActiveFocus()
            area.selectAll()
            keyClick(Qt.Key_Delete)
            keySequence("F")
            for (var c of "elt rested #sleep:8h today")
                keyClick(c)
            mouseClick(findChild(shell, "editorDone"))
            tryCompare(Editor, "active", false)
            compare(Fixture.recordCount(), before + 1)
            var found = Fixture.recordsWithComment("rested #sleep:8h")
            compare(found.length, 1)
            compare(found[0].level, 7)
            verify(found[0].tags.indexOf("sleep") >= 0, JSON.stringify(found[0].tags))
        }

        function test_unitOfferedAfterColon() {
            mouseClick(findChild(shell, "levelTile5"))
            tryCompare(Editor, "active", true)
            var area = editorText()
            area.forceActiveFocus()
            area.selectAll()
            keyClick(Qt.Key_Delete)
            for (var c of "#sleep:")
                keyClick(c)
            // The journal knows #sleep with "h" as its unit: typing the
            // colon puts the unit in after the caret.
            tryCompare(area, "text", "#sleep:h")
            compare(area.cursorPosition, 7)
            mouseClick(findChild(shell, "editorCancel"))
            answerAlert("Yes")
            tryCompare(Editor, "active", false)
        }

        function test_cancelledNewRecordIsGone() {
            var before = Fixture.recordCount()
            mouseClick(findChild(shell, "levelTile3"))
            tryCompare(Editor, "active", true)
            compare(Fixture.recordCount(), before + 1)  // saved at once, as the tile is touched
            var area = editorText()
            area.forceActiveFocus()
            for (var c of "never mind")
                keyClick(c)
            keyClick(Qt.Key_Escape)
            answerAlert("Yes")
            tryCompare(Editor, "active", false)
            compare(Fixture.recordCount(), before)
            compare(Fixture.recordsWithComment("never mind").length, 0)
        }

        function test_cancelledEditIsRestored() {
            verify(Fixture.editRecordWithComment("Called mum"))
            tryCompare(Editor, "active", true)
            compare(Editor.isNew, false)
            var area = editorText()
            tryCompare(area, "text", Fixture.recordsWithComment("Called mum")[0].comment)
            var original = area.text
            area.forceActiveFocus()
            area.selectAll()
            for (var c of "rewritten #other")
                keyClick(c)
            mouseClick(findChild(shell, "editorCancel"))
            answerAlert("Yes")
            tryCompare(Editor, "active", false)
            compare(Fixture.recordsWithComment("rewritten").length, 0)
            verify(Fixture.recordsWithComment(original).length > 0)
            verify(Fixture.tagNames().indexOf("other") < 0, "the cancelled tag was not made")
        }

        function test_renameTagInThePanel() {
            verify(Fixture.tagNames().indexOf("yoga") >= 0)
            verify(Fixture.editRecordWithComment("#yoga"))
            tryCompare(Editor, "active", true)
            var chip = null
            tryVerify(function () { chip = findChild(shell, "textTag_yoga"); return chip !== null })
            mouseClick(chip)
            tryCompare(Editor, "tagPanelVisible", true)
            var panel = findChild(shell, "editorScreen").tagPanel
            var name = panel.nameField
            tryCompare(name, "text", "yoga")
            name.selectAll()
            for (var c of "stretching")
                keyClick(c)
            Editor.tagPanelDone(name.text, panel.unitField.text)
            tryCompare(Editor, "tagPanelVisible", false)
            tryVerify(function () { return Fixture.tagNames().indexOf("stretching") >= 0 })
            verify(Fixture.tagNames().indexOf("yoga") < 0)
            verify(Fixture.recordsWithComment("#stretching").length > 0, "comments follow the new name")
            mouseClick(findChild(shell, "editorDone"))
            tryCompare(Editor, "active", false)
        }
    }
}
