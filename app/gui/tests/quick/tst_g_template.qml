// The template screen, reached from the settings menu: a tag offered as it
// is typed (a feeling word that is no tag yet among them), picked, the
// template kept on Back, and the next new record starting from it.
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
        name: "Template"
        when: windowShown

        function find(name) {
            var item = null
            tryVerify(function () { item = findChild(shell, name); return item !== null && item.visible }, 5000,
                      "no " + name)
            return item
        }
        function openTemplate() {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(0)
            mouseClick(find("settingsButton"))
            var row = find("settingsRow_kTemplateRow")
            waitForRendering(shell)
            mouseClick(row)
            tryCompare(Shell.screens, "length", 2)
            compare(Shell.screens[1].className, "MoodTemplateViewController")
            find("templateScreen")
            tryCompare(TemplateEditor, "active", true)
            return find("templateText")
        }
        function closeAll() {
            while (Shell.screens.length > 0)
                Shell.closeScreen(Shell.screens[Shell.screens.length - 1].className)
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
        function typeText(text) {
            for (var i = 0; i < text.length; ++i)
                keyClick(text[i])
        }
        function cleanup() {
            if (TemplateEditor.active)
                TemplateEditor.back()
            if (Editor.active) {
                Editor.cancel()
                answerAlert("Yes")
            }
            closeAll()
        }
        function cleanupTestCase() {
            // The files after this one start records without a template.
            var area = openTemplate()
            area.selectAll()
            keyClick(Qt.Key_Delete)
            mouseClick(find("templateBack"))
            closeAll()
        }

        function test_a_pickASuggestionAndStartARecordFromIt() {
            var area = openTemplate()
            compare(area.placeholderText, "Enter your template for moods")
            compare(area.text, "")
            typeText("Today #gra")
            var offer = find("templateCompletion0")
            compare(offer.text, "#grateful")
            verify(offer.subtle, "a feeling word that is no tag yet")
            mouseClick(offer)
            tryCompare(area, "text", "Today #grateful")
            compare(area.cursorPosition, area.text.length)
            verify(findChild(shell, "templateCompletion0") === null || !findChild(shell, "templateCompletion0").visible)
            typeText(" #wal")
            var tagOffer = find("templateCompletion0")
            compare(tagOffer.text, "#walk")
            verify(!tagOffer.subtle, "a tag the journal has")
            mouseClick(tagOffer)
            tryCompare(area, "text", "Today #grateful #walk")
            mouseClick(find("templateBack"))
            tryCompare(TemplateEditor, "active", false)
            closeAll()

            // A new record starts from the template.
            shell.forceActiveFocus()
            keyClick(Qt.Key_6)
            tryCompare(Editor, "active", true)
            compare(Editor.text, "Today #grateful #walk")
            var editorText = find("editorText")
            tryCompare(editorText, "text", "Today #grateful #walk")
            Editor.done()
            tryCompare(Editor, "active", false)
            var saved = Fixture.recordsWithComment("Today #grateful #walk")
            compare(saved.length, 1)
            compare(saved[0].tags, ["grateful", "walk"])
        }

        function test_b_reopeningShowsTheKeptTemplate() {
            var area = openTemplate()
            compare(area.text, "Today #grateful #walk")
            compare(area.cursorPosition, area.text.length)
        }
    }
}
