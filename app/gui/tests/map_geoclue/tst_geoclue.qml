// The Map tab's own position through GeoClue on a private bus (run by
// map_geoclue_test.sh): a fix shows the user's dot and "My location"
// centres on it at 20 km across; a denial is said plainly and the pins stay.
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
        name: "GeoClue"
        when: windowShown

        function test_ownPosition() {
            tryCompare(Shell, "splashDone", true)
            Shell.selectTab(3)
            tryVerify(function () { return MapTab.ready }, 30000)
            tryVerify(function () { Fixture.drain(); return MapTab.settled && MapTab.viewport.pinCount > 0 }, 30000)
            var mode = MapFixture.geoClueMode()
            if (mode === "fix") {
                tryVerify(function () { Fixture.drain(); return MapTab.hasOwnLocation }, 30000)
                compare(MapTab.locationProblem, "")
                verify(Math.abs(MapTab.ownLatitude - 47.0707) < 1e-6)
                verify(Math.abs(MapTab.ownLongitude - 15.4395) < 1e-6)
                mouseClick(findChild(shell, "mapLocationButton"))
                Fixture.drain()
                // Centred on the user (the core's 1.5 s centring or the button).
                tryVerify(function () {
                    Fixture.drain()
                    return Math.abs(MapTab.viewport.centerLatitude - 47.0707) < 1e-4
                           && Math.abs(MapTab.viewport.centerLongitude - 15.4395) < 1e-4
                }, 30000)
                var dot = findChild(shell, "mapOwnLocation")
                verify(dot.visible)
                var map = findChild(shell, "mapSurface")
                verify(Math.abs(dot.x + dot.width / 2 - map.width / 2) < 1.5, dot.x)
            } else {
                tryVerify(function () { Fixture.drain(); return MapTab.locationProblem !== "" }, 30000)
                verify(MapTab.locationProblem.indexOf("Location is denied") === 0, MapTab.locationProblem)
                compare(MapTab.hasOwnLocation, false)
                mouseClick(findChild(shell, "mapLocationButton"))
                var problem = findChild(shell, "mapLocationProblem")
                tryVerify(function () { return problem.visible })
                verify(MapTab.viewport.pinCount > 0)
            }
        }
    }
}
