// The level editor, reached from the settings menu: a level's text and the
// gradient's colour changed and the capture tile showing both after Done;
// the gradient switch kept across visits; Back keeps nothing; Reset asks
// and puts the shipped levels back.
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
        name: "LevelEditor"
        when: windowShown

        function find(name) {
            var item = null
            tryVerify(function () { item = findChild(shell, name); return item !== null && item.visible }, 5000,
                      "no " + name)
            return item
        }
        function openLevelEditor() {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(0)
            mouseClick(find("settingsButton"))
            var row = find("settingsRow_kMoodsRow")
            // The menu has just come up: let it draw once before the click.
            waitForRendering(shell)
            mouseClick(row)
            tryCompare(Shell.screens, "length", 2)
            compare(Shell.screens[1].className, "MoodCaptureEditViewController")
            find("levelEditorScreen")
            tryCompare(LevelEditor, "active", true)
        }
        function closeSettings() {
            while (Shell.screens.length > 0)
                Shell.closeScreen(Shell.screens[Shell.screens.length - 1].className)
        }
        function answerSheet(buttonTitle) {
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
        function tile(level) {
            Shell.selectTab(0)
            return find("levelTile" + level)
        }
        function cleanup() {
            if (LevelEditor.active)
                LevelEditor.back()
            closeSettings()
        }
        function cleanupTestCase() {
            // Leave the shipped levels to the files that run after this one.
            openLevelEditor()
            mouseClick(find("levelEditorReset"))
            answerSheet("Reset")
            LevelEditor.back()
            closeSettings()
        }

        function test_a_textAndColourReachTheCaptureTile() {
            openLevelEditor()
            // Level 7 is the fourth row.
            var field = find("levelText_3")
            mouseClick(field)
            compare(LevelEditor.currentEdit, 3)
            field.selectAll()
            keyClick(Qt.Key_Delete)
            var word = "Bright"
            for (var i = 0; i < word.length; ++i)
                keyClick(word[i])
            keyClick(Qt.Key_Return)
            compare(LevelEditor.currentEdit, -1)

            // The middle colour, picked in the field's blue: level 5 and 6
            // turn blue.
            var panelHandle = find("colorPanelHandle")
            if (!LevelEditor.panelOpen)
                mouseClick(panelHandle)
            tryCompare(LevelEditor, "panelOpen", true)
            mouseClick(find("colorButton1"))
            compare(LevelEditor.selectedButton, 1)
            verify(LevelEditor.gradientMode)
            var field2 = find("colorField")
            mouseClick(field2, field2.width * 4 / 6, 2)  // hue 240°: blue, full saturation
            var row5 = find("levelRow_5")
            verify(row5.color.b > 0.6 && row5.color.r < 0.5, "level 5 is blue: " + row5.color)
            var chosen = row5.color

            mouseClick(find("levelEditorDone"))
            tryCompare(LevelEditor, "active", false)
            tryCompare(Shell.screens, "length", 1)
            closeSettings()

            var seven = tile(7)
            verify(seven.Accessible.name.indexOf("Bright") >= 0, seven.Accessible.name)
            var five = tile(5)
            tryVerify(function () {
                var c = five.background.color
                return Math.abs(c.r - chosen.r) < 0.02 && Math.abs(c.g - chosen.g) < 0.02 && Math.abs(c.b - chosen.b) < 0.02
            }, 3000, "tile 5 takes the new colour")
            // The editor's level band follows too.
            verify(Theme.levelText(7) === "Bright")
        }

        function test_b_gradientSwitchIsKept() {
            openLevelEditor()
            var gradient = find("gradientSwitch")
            verify(gradient.checked, "on since the last visit chose a colour")
            mouseClick(gradient)
            verify(!LevelEditor.gradientMode)
            mouseClick(find("levelEditorDone"))
            tryCompare(LevelEditor, "active", false)
            closeSettings()

            openLevelEditor()
            gradient = find("gradientSwitch")
            verify(!gradient.checked)
            mouseClick(gradient)
            verify(LevelEditor.gradientMode)
            mouseClick(find("levelEditorDone"))
            tryCompare(LevelEditor, "active", false)
            closeSettings()

            openLevelEditor()
            verify(find("gradientSwitch").checked)
        }

        function test_c_backKeepsNothing() {
            openLevelEditor()
            var field = find("levelText_9")
            mouseClick(field)
            field.selectAll()
            keyClick(Qt.Key_X)
            keyClick(Qt.Key_Escape)
            tryCompare(LevelEditor, "active", false)
            closeSettings()
            verify(tile(1).Accessible.name.indexOf("x") < 0, tile(1).Accessible.name)
        }

        function test_d_resetAsksThenRestores() {
            openLevelEditor()
            mouseClick(find("levelEditorReset"))
            answerSheet("Cancel")
            compare(find("levelText_3").text, "Bright")
            mouseClick(find("levelEditorReset"))
            compare(Presenter.current.title, "All mood labels and colors will be reset to default values. Continue?")
            answerSheet("Reset")
            tryVerify(function () { return find("levelText_3").text !== "Bright" })
            verify(!LevelEditor.gradientMode)
            LevelEditor.back()
            closeSettings()
            verify(tile(7).Accessible.name.indexOf("Bright") < 0, "the tile follows the reset at once")
        }
    }
}
