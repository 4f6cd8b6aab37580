// The line icons of the History and Summary tabs that the app's common set
// lacks, drawn the same way (a 24 × 24 path in any colour, no shader).
import QtQuick
import QtQuick.Shapes

Item {
    id: glyph
    property string name
    property color color: "black"
    property real size: 22
    property real lineWidth: 1.8
    implicitWidth: size
    implicitHeight: size

    readonly property var paths: ({
        "share": "M12 15V4M8 8l4-4l4 4M6 12v8h12v-8",
        "delete": "M5 7h14M10 7V4h4v3M7 7l1 13h8l1-13M10 11v6M14 11v6",
        "filter": "M4 6h16M7 12h10M10 18h4",
        "list": "M8 6h12M8 12h12M8 18h12M4 6h.01M4 12h.01M4 18h.01",
        "calendar": "M4 6h16v14H4zM4 10h16M8 3v5M16 3v5M8 14h2M12 14h2M16 14h.01M8 17h2",
        "chevron": "M9 5l7 7l-7 7",
        "left": "M15 5l-7 7l7 7",
        "right": "M9 5l7 7l-7 7",
        "graph": "M3 17l5-6l4 3l4-7l5 5M3 21h18",
        "info": "M12 11v6M12 7.5v.01M12 21a9 9 0 1 0 0-18a9 9 0 0 0 0 18z",
        "zoomIn": "M10.5 17a6.5 6.5 0 1 0 0-13a6.5 6.5 0 0 0 0 13zM15.5 15.5L20 20M8 10.5h5M10.5 8v5",
        "zoomOut": "M10.5 17a6.5 6.5 0 1 0 0-13a6.5 6.5 0 0 0 0 13zM15.5 15.5L20 20M8 10.5h5"
    })

    Shape {
        anchors.centerIn: parent
        width: 24
        height: 24
        scale: glyph.size / 24
        ShapePath {
            strokeColor: glyph.color
            strokeWidth: glyph.lineWidth
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            joinStyle: ShapePath.RoundJoin
            PathSvg { path: glyph.paths[glyph.name] || "" }
        }
    }
}
