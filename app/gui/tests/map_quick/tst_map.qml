// The Map tab by objectName, with the tile server down: pins for the located
// records (the same as `lumeo map` counts), a click on a cluster fits it,
// the tag filter, pies and averages, the tiles' trouble said plainly; the
// editor's place chooser writes the place `lumeo show` reads; the settings
// screen's "Auto" without location and "Delete Geolocation" (last: it
// empties the map).
import QtQuick
import QtTest
import Lumeo
import Lumeo.Core

Item {
    id: top
    width: 1000
    height: 720

    AppShell {
        id: shell
        anchors.fill: parent
        screenshotMode: true
    }

    TestCase {
        name: "Map"
        when: windowShown

        function keep(name) {
            var dir = Fixture.artefactDir()
            if (dir !== "")
                grabImage(top).save(dir + "/" + name + ".png")
        }

        function init() {
            tryCompare(Shell, "splashDone", true, 30000)
            if (Editor.active) {
                Editor.cancel()
                answerAlert("Yes")
            }
            Shell.selectTab(3)
            tryVerify(function () { return MapTab.ready }, 30000)
            settle()
        }

        // Reading done, the last gesture over, the clustering shown.
        function settle() {
            MapTab.viewport.settle()
            waitSettled()
            wait(50)
            waitSettled()
        }
        function waitSettled() {
            var timer = new Date().getTime()
            while (true) {
                Fixture.drain()
                if (MapTab.settled)
                    return
                if (new Date().getTime() - timer > 60000)
                    break
                wait(20)
            }
            fail("the map did not settle in 60 s: " + MapTab.progress())
        }

        function pins() {
            var out = []
            var model = MapTab.viewport.pins
            for (var i = 0; i < MapTab.viewport.pinCount; ++i) {
                var item = findChild(shell, "mapPin" + i)
                if (item)
                    out.push(item)
            }
            return out
        }
        function pinTotal() {
            var sum = 0
            var all = pins()
            for (var i = 0; i < all.length; ++i)
                sum += all[i].pinCount
            return sum
        }

        function answerAlert(buttonTitle) {
            tryVerify(function () { return Presenter.current.id !== undefined }, 30000)
            var actions = Presenter.current.actions
            for (var i = 0; i < actions.length; ++i) {
                if (actions[i].title === buttonTitle) {
                    var request = Presenter.current
                    Presenter.answer(request.id, actions[i].result)
                    Fixture.drain()
                    return request
                }
            }
            fail("no button " + buttonTitle + " in " + JSON.stringify(actions))
        }

        function test_a_pinsShowTheLocatedRecords() {
            var cli = Fixture.lumeoJson(["map"])
            verify(cli.located > 10, JSON.stringify(cli))
            compare(MapTab.locatedCount, cli.located)
            // The tab opens on every located record: the pins hold them all,
            // on several pins once the first read has fitted the map to them
            // (before that, one pin at the world's scale may hold them all).
            tryVerify(function () { return pinTotal() === cli.located && pins().length >= 2 }, 30000,
                      "the pins, fitted, hold all " + cli.located + " located records")
            // Each pin is the core's picture of its moods.
            var first = pins()[0]
            verify(String(first.source).indexOf("image://lumeo/mappin/pie/") === 0, first.source)
            tryCompare(first, "status", Image.Ready, 30000)
            // The tile server is down: said plainly, the pins stay.
            var problem = findChild(shell, "mapTileProblem")
            tryVerify(function () { return problem.visible }, 30000)
            verify(MapTab.tiles.problem.indexOf("cannot be reached") > 0, MapTab.tiles.problem)
            compare(findChild(shell, "mapAttribution").text, "© OpenStreetMap contributors")
            // No location service in the test: the tab says so.
            verify(MapTab.locationProblem.indexOf("No location service") === 0, MapTab.locationProblem)
            keep("map-pins")
        }

        function test_b_clickingAClusterFitsIt() {
            var cluster = null
            var all = pins()
            for (var i = 0; i < all.length; ++i)
                if (!all[i].pinUnique && all[i].pinCount > 1)
                    cluster = all[i]
            verify(cluster !== null, "no cluster of several places")
            var before = MapTab.viewport.zoom
            var members = cluster.pinCount
            mouseClick(cluster)
            settle()
            verify(MapTab.viewport.zoom > before + 0.1, MapTab.viewport.zoom + " after " + before)
            // All its records are on screen, their places apart now, and the
            // card lists its moods.
            tryVerify(function () { return MapTab.viewport.pinCount >= 2 && pinTotal() >= members }, 30000)
            var details = findChild(shell, "mapPinDetails")
            verify(details.visible)
            verify(findChild(shell, "mapPinTitle").text.indexOf("annotations") > 0)
            // Its records, newest first; one opens in the editor.
            var records = findChild(shell, "mapPinRecords")
            compare(records.count, Math.min(members, 100))
            var row = null
            tryVerify(function () { row = findChild(records, "mapPinRecord0"); return row !== null }, 30000)
            var shownLevel = records.model[0].level
            mouseClick(row)
            tryCompare(Editor, "active", true, 30000)
            compare(Editor.isNew, false)
            compare(Editor.level, shownLevel)
            Editor.cancel()
            if (Presenter.current.id !== undefined)
                answerAlert("Yes")
            tryCompare(Editor, "active", false, 30000)
            Shell.selectTab(3)
            keep("map-cluster-fitted")
            // Zooming out with the keyboard and the button goes back.
            var map = findChild(shell, "mapSurface")
            map.forceActiveFocus()
            var fitted = MapTab.viewport.zoom
            keyClick(Qt.Key_Minus)
            mouseClick(findChild(shell, "mapZoomOut"))
            settle()
            verify(Math.abs(MapTab.viewport.zoom - (fitted - 2)) < 1e-6, MapTab.viewport.zoom + " after " + fitted)
            MapTab.fitAll()
            settle()
        }

        function test_c_theTagFilterNarrowsThePins() {
            var all = pinTotal()
            mouseClick(findChild(shell, "mapTagButton"))
            var sheet = findChild(shell, "mapTab").filterSheet
            tryVerify(function () { return sheet.opened }, 30000)
            var tag = null
            tryVerify(function () { tag = findChild(sheet.contentItem, "mapFilterTag_work"); return tag !== null }, 30000)
            waitForRendering(sheet.contentItem)
            mouseClick(tag)
            tryCompare(tag, "checked", true, 30000)
            mouseClick(findChild(sheet.contentItem, "mapFilterDone"))
            tryVerify(function () { return !sheet.visible }, 30000)
            settle()
            compare(MapTab.tagFilterText, "work")
            var cli = Fixture.lumeoJson(["map", "--tag", "work"])
            compare(MapTab.locatedCount, cli.located)
            verify(cli.located > 0 && cli.located < all)
            tryVerify(function () { return pinTotal() === cli.located }, 30000)
            keep("map-filtered")
            mouseClick(findChild(shell, "mapClearFilter"))
            settle()
            compare(MapTab.filtered, false)
            tryVerify(function () { return pinTotal() === all }, 30000)
        }

        function test_d_aPeriodWithBadDatesIsRefused() {
            mouseClick(findChild(shell, "mapFilterButton"))
            var sheet = findChild(shell, "mapTab").filterSheet
            tryVerify(function () { return sheet.opened }, 30000)
            var from = findChild(sheet.contentItem, "mapFilterFrom")
            from.text = "the day after"
            mouseClick(findChild(sheet.contentItem, "mapFilterDone"))
            verify(sheet.visible)
            verify(findChild(sheet.contentItem, "mapFilterError").text.length > 0)
            compare(MapTab.filtered, false)
            // The last week only.
            from.text = "2026-11-14"
            findChild(sheet.contentItem, "mapFilterTo").text = "2026-11-20"
            mouseClick(findChild(sheet.contentItem, "mapFilterDone"))
            tryVerify(function () { return !sheet.visible }, 30000)
            settle()
            var cli = Fixture.lumeoJson(["map", "--from", "2026-11-14", "--to", "2026-11-20"])
            compare(MapTab.locatedCount, cli.located)
            verify(MapTab.dateFromText.indexOf("2026") >= 0, MapTab.dateFromText)
            MapTab.clearFilter()
            settle()
        }

        function test_e_averagesInsteadOfPies() {
            mouseClick(findChild(shell, "mapModeButton"))
            settle()
            compare(MapTab.averageDrawing, true)
            tryVerify(function () {
                var all = pins()
                return all.length > 0 && String(all[0].source).indexOf("/average/") > 0
            }, 30000)
            keep("map-average")
            mouseClick(findChild(shell, "mapModeButton"))
            settle()
            compare(MapTab.averageDrawing, false)
        }

        function test_f_choosingAPlaceInTheEditor() {
            Shell.selectTab(0)
            shell.forceActiveFocus()
            keyClick(Qt.Key_4)
            tryCompare(Editor, "active", true, 30000)
            var placeButton = null
            tryVerify(function () { placeButton = findChild(shell, "editorPlace"); return placeButton !== null }, 30000)
            mouseClick(placeButton)
            var dialog = findChild(shell, "editorScreen").placeDialog
            tryVerify(function () { return dialog.opened }, 30000)
            var map = findChild(dialog.contentItem, "placeMap")
            verify(map !== null)
            waitForItemPolished(map)
            // Closer, then a click: that point comes under the cross.
            PlaceChooser.viewport.centerOn(47.07, 15.44, 12)
            var target = PlaceChooser.viewport.coordinateAt(map.width / 2 + 60, map.height / 2 - 40)
            mouseClick(map, map.width / 2 + 60, map.height / 2 - 40)
            PlaceChooser.viewport.settle()
            verify(Math.abs(PlaceChooser.viewport.centerLatitude - target.latitude) < 1e-6)
            verify(Math.abs(PlaceChooser.viewport.centerLongitude - target.longitude) < 1e-6)
            var chosen = { latitude: PlaceChooser.viewport.centerLatitude,
                           longitude: PlaceChooser.viewport.centerLongitude }
            keep("place-chooser")
            mouseClick(findChild(dialog.contentItem, "placeDone"))
            tryVerify(function () { return !dialog.visible }, 30000)
            compare(Editor.hasPlace, true)
            mouseClick(findChild(shell, "editorDone"))
            tryCompare(Editor, "active", false, 30000)
            Fixture.drain()
            // What the command line reads is the place chosen.
            var newest = Fixture.lumeoJson(["list", "--limit", "1"])
            compare(newest.length, 1)
            var shown = Fixture.lumeoJson(["show", String(newest[0].id)])
            compare(shown.level, 4)
            verify(Math.abs(shown.latitude - chosen.latitude) < 1e-6, JSON.stringify(shown))
            verify(Math.abs(shown.longitude - chosen.longitude) < 1e-6, JSON.stringify(shown))
        }

        function test_g_searchFindsPlacesAndMovesTheMap() {
            verify(MapFixture.usePlaceServer("recorded"))
            Shell.selectTab(0)
            shell.forceActiveFocus()
            keyClick(Qt.Key_8)
            tryCompare(Editor, "active", true, 30000)
            var placeButton = null
            tryVerify(function () { placeButton = findChild(shell, "editorPlace"); return placeButton !== null }, 30000)
            mouseClick(placeButton)
            var dialog = findChild(shell, "editorScreen").placeDialog
            tryVerify(function () { return dialog.opened }, 30000)
            // Somewhere in the region already, at a town's zoom.
            PlaceChooser.viewport.centerOn(47.2, 15.6, 11)
            var zoom = PlaceChooser.viewport.zoom
            var field = findChild(dialog.contentItem, "placeSearch")
            field.forceActiveFocus()
            for (var c of "Graz")
                keyClick(c)
            // Typing alone asks nothing; Enter asks once.
            compare(MapFixture.placeRequests().length, 0)
            keyClick(Qt.Key_Return)
            tryVerify(function () { Fixture.drain(); return PlaceChooser.results.length > 0 }, 30000)
            compare(MapFixture.placeRequests().length, 1)
            verify(MapFixture.placeRequests()[0].indexOf("q=Graz") > 0, MapFixture.placeRequests()[0])
            verify(MapFixture.placeRequests()[0].indexOf("Lumeo/") > 0, MapFixture.placeRequests()[0])
            compare(PlaceChooser.results[0].displayName, "Graz, Steiermark, Österreich")
            var row = null
            tryVerify(function () { row = findChild(dialog.contentItem, "placeResult1"); return row !== null }, 30000)
            waitForRendering(row)
            keep("place-results")
            mouseClick(row)
            Fixture.drain()
            // The list closes, the map moves there and keeps its zoom.
            tryCompare(PlaceChooser, "resultsShown", false, 30000)
            verify(Math.abs(PlaceChooser.viewport.centerLatitude - 47.0779419) < 1e-6, PlaceChooser.viewport.centerLatitude)
            verify(Math.abs(PlaceChooser.viewport.centerLongitude - 15.4213516) < 1e-6, PlaceChooser.viewport.centerLongitude)
            // (The core keeps the span in degrees: on Mercator's plane the
            // zoom moves by a hair.)
            verify(Math.abs(PlaceChooser.viewport.zoom - zoom) < 0.01, PlaceChooser.viewport.zoom + " " + zoom)
            var chosen = { latitude: PlaceChooser.viewport.centerLatitude,
                           longitude: PlaceChooser.viewport.centerLongitude }
            keep("place-search")
            mouseClick(findChild(dialog.contentItem, "placeDone"))
            tryVerify(function () { return !dialog.visible }, 30000)
            mouseClick(findChild(shell, "editorDone"))
            tryCompare(Editor, "active", false, 30000)
            Fixture.drain()
            var newest = Fixture.lumeoJson(["list", "--limit", "1"])
            var shown = Fixture.lumeoJson(["show", String(newest[0].id)])
            compare(shown.level, 8)
            verify(Math.abs(shown.latitude - chosen.latitude) < 1e-6, JSON.stringify(shown))
            verify(Math.abs(shown.longitude - chosen.longitude) < 1e-6, JSON.stringify(shown))
        }

        function test_g_searchWithTheServerDownSaysWhy() {
            verify(MapFixture.usePlaceServer(""))
            Shell.selectTab(0)
            shell.forceActiveFocus()
            keyClick(Qt.Key_5)
            tryCompare(Editor, "active", true, 30000)
            var placeButton = null
            tryVerify(function () { placeButton = findChild(shell, "editorPlace"); return placeButton !== null }, 30000)
            mouseClick(placeButton)
            var dialog = findChild(shell, "editorScreen").placeDialog
            tryVerify(function () { return dialog.opened }, 30000)
            var field = findChild(dialog.contentItem, "placeSearch")
            field.forceActiveFocus()
            for (var c of "Graz")
                keyClick(c)
            // Typing alone asks nothing.
            compare(PlaceChooser.searching, false)
            keyClick(Qt.Key_Return)
            tryVerify(function () { Fixture.drain(); return PlaceChooser.searchError !== "" }, 30000)
            verify(findChild(dialog.contentItem, "placeSearchStatus").visible)
            mouseClick(findChild(dialog.contentItem, "placeCancel"))
            tryVerify(function () { return !dialog.visible }, 30000)
            compare(Editor.hasPlace, false)
            Editor.cancel()
            answerAlert("Yes")
            tryCompare(Editor, "active", false, 30000)
        }

        function test_h_autoWithoutLocationPointsToTheSettings() {
            Shell.showSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kMapRow"); return row !== null }, 30000)
            mouseClick(row)
            var screen = null
            tryVerify(function () { screen = findChild(shell, "mapSettingsScreen"); return screen !== null }, 30000)
            mouseClick(findChild(screen, "mapSettingsAuto"))
            var alert = answerAlert("Cancel")
            compare(alert.title, "Enable geolocation in the application settings")
            compare(MapSettings.automatic, false)
            mouseClick(findChild(screen, "mapSettingsManual"))
            compare(MapSettings.automatic, false)
            // A tile server without {x} is refused in words.
            var url = findChild(screen, "mapSettingsTileUrl")
            compare(url.enabled, false)  // LUMEO_TILE_URL decides in this run
            Shell.closeScreen("MoodMapSettingsViewController")
            Shell.closeScreen("MoodSettingsViewController")
        }

        function test_z_deletingEveryPlaceEmptiesTheMap() {
            verify(MapTab.viewport.pinCount > 0)
            Shell.showSettings()
            var row = null
            tryVerify(function () { row = findChild(shell, "settingsRow_kMapRow"); return row !== null }, 30000)
            mouseClick(row)
            var screen = null
            tryVerify(function () { screen = findChild(shell, "mapSettingsScreen"); return screen !== null }, 30000)
            keep("map-settings")
            // "Cancel" keeps every place.
            mouseClick(findChild(screen, "mapSettingsDelete"))
            var asked = answerAlert("Cancel")
            compare(asked.title, "Attention!")
            compare(asked.message, "All location data will be permanently deleted. Are you sure?")
            verify(Fixture.lumeoJson(["map"]).located > 0)
            // "Yes" deletes them and says so.
            mouseClick(findChild(screen, "mapSettingsDelete"))
            answerAlert("Yes")
            var done = answerAlert("OK")
            compare(done.message, "All location data has been successfully deleted")
            compare(Fixture.lumeoJson(["map"]).located, 0)
            Shell.closeScreen("MoodMapSettingsViewController")
            Shell.closeScreen("MoodSettingsViewController")
            // The map reads again and is empty.
            Shell.selectTab(3)
            MapTab.clearFilter()
            settle()
            compare(MapTab.locatedCount, 0)
            tryCompare(MapTab.viewport, "pinCount", 0, 30000)
            tryVerify(function () { return findChild(shell, "mapEmpty").visible }, 30000)
            keep("map-empty")
        }
    }
}
