// Bad input in the editor: a file that is not a picture is refused with a
// message and the record keeps no photo; a megabyte of pasted text is taken
// whole and saved whole.
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
        name: "BadInput"
        when: windowShown

        function answerFirst() {
            tryVerify(function () { return Presenter.current.id !== undefined })
            var request = Presenter.current
            Presenter.answer(request.id, request.actions[0].result)
            return request
        }
        function openEditor(level) {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(0)
            verify(Capture.chooseLevel(level))
            tryCompare(Editor, "active", true)
            var area = null
            tryVerify(function () { area = findChild(shell, "editorText"); return area !== null })
            return area
        }

        function test_notAPictureIsRefused() {
            openEditor(6)
            // This very test file is text, not a picture.
            var url = Qt.resolvedUrl("tst_e_bad_input.qml")
            verify(!Editor.photoChosen(url))
            var alert = answerFirst()
            compare(alert.title, "Not a picture")
            verify(alert.message.indexOf("tst_e_bad_input.qml") >= 0, alert.message)
            verify(!Editor.hasPhoto)
            Editor.done()
            tryCompare(Editor, "active", false)
        }

        function test_aMegabytePasteIsSavedWhole() {
            var area = openEditor(8)
            var line = "a long day of notes #pasted "
            var text = ""
            while (text.length < 1024 * 1024)
                text += line
            area.text = text          // as a paste replaces the text at once
            compare(Editor.text.length, text.length)
            Editor.done()
            tryCompare(Editor, "active", false)
            var saved = Fixture.recordsWithComment("a long day of notes #pasted a long")
            compare(saved.length, 1)
            compare(saved[0].comment.length, text.length)
            verify(saved[0].tags.indexOf("pasted") >= 0)
        }
    }
}
