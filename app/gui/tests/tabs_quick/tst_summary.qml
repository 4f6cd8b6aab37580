// The Summary tab by objectName: change the period, page to the tags and
// open a tag's records, open the graph and zoom it.
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
        name: "Summary"
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
            Shell.selectTab(2)
            tryVerify(function () { return Summary.controller !== null })
            var stack = findChild(shell, "summaryStack")
            while (stack.depth > 1)
                stack.pop()
            Summary.controller.page = 0
        }

        function test_a_theChosenPeriodIsKeptAndShown() {
            var button = findChild(shell, "summaryPeriodButton")
            tryVerify(function () { return button.visible })
            compare(button.text, "From first record")
            verify(findChild(shell, "summaryStat0").Accessible.name.indexOf("Total: ") === 0)
            mouseClick(button)
            var sheet = findChild(shell, "summaryTotalPage").periodSheet
            tryVerify(function () { return sheet.opened })
            var row = sheet.rows.itemAt(4)
            waitForItemPolished(row.parent)
            wait(50)
            mouseClick(row)
            tryVerify(function () { return !sheet.visible })
            compare(Summary.controller.period, 4)
            compare(button.text, "Last 30 days")
            keep("summary-30-days")
            Summary.controller.choosePeriod(0)
            compare(button.text, "From first record")
        }

        function test_b_aTagRowOpensItsRecords() {
            mouseClick(findChild(shell, "summaryPage1"))
            compare(Summary.controller.page, 1)
            var tags = findChild(shell, "summaryPositiveTags")
            tryVerify(function () { return tags.visible && tags.count > 0 })
            keep("summary-positive")
            var first = tags.itemAtIndex(0)
            mouseClick(first)
            var stack = findChild(shell, "summaryStack")
            tryCompare(stack, "depth", 2)
            verify(stack.currentItem.history.count > 0)
            compare(stack.currentItem.history.title, "#" + first.name)
            mouseClick(findChild(stack.currentItem, "historyBack"))
            tryCompare(stack, "depth", 1)
        }

        function test_c_theGraphZoomsWithinItsLimits() {
            var open = findChild(shell, "summaryGraphButton")
            tryVerify(function () { return open !== null && open.visible })
            mouseClick(open)
            var stack = findChild(shell, "summaryStack")
            tryCompare(stack, "depth", 2)
            var graph = stack.currentItem.graph
            verify(!graph.empty)
            var before = graph.zoomRate
            for (var i = 0; i < 12; ++i)
                mouseClick(findChild(stack.currentItem, "graphZoomIn"))
            verify(graph.zoomRate < before)
            compare(graph.zoomRate, 10)
            verify(graph.canMoveLeft)
            mouseClick(findChild(stack.currentItem, "graphLeft"))
            verify(graph.canMoveRight)
            keep("summary-graph")
            mouseClick(findChild(stack.currentItem, "graphBack"))
            tryCompare(stack, "depth", 1)
        }
    }
}
