// A line icon drawn as a shape (24 × 24 grid), so it takes any colour and
// renders the same with the software renderer.
import QtQuick
import QtQuick.Shapes

Item {
    id: icon
    property string name
    property color color: "black"
    property real size: 24
    property real lineWidth: 1.8
    implicitWidth: size
    implicitHeight: size

    readonly property var paths: ({
        "capture": "M12 4v16M4 12h16",
        "history": "M4 6h16M4 12h16M4 18h10",
        "summary": "M4 19V11M10 19V5M16 19v-6M21 19H3",
        "map": "M12 21s-6-6.2-6-11a6 6 0 0 1 12 0c0 4.8-6 11-6 11zM12 12.5a2.5 2.5 0 1 0 0-5a2.5 2.5 0 0 0 0 5z",
        "settings": "M4 7h10M18 7h2M4 17h2M10 17h10M16 5v4M8 15v4",
        "close": "M6 6l12 12M18 6L6 18",
        "back": "M15 5l-7 7l7 7",
        "lock": "M7 11V8a5 5 0 0 1 10 0v3M5 11h14v9H5z",
        "photo": "M4 6h16v13H4zM4 16l5-5l4 4l2-2l5 5M15.5 10a1.5 1.5 0 1 0 0-.01",
        "place": "M12 21s-6-6.2-6-11a6 6 0 0 1 12 0c0 4.8-6 11-6 11z",
        "date": "M4 6h16v14H4zM4 10h16M8 3v5M16 3v5",
        "check": "M5 12l5 5l9-10",
        "sparkle": "M12 3v5M12 16v5M3 12h5M16 12h5M6 6l3 3M15 15l3 3M18 6l-3 3M9 15l-3 3",
        "backspace": "M9 6h11v12H9l-6-6zM12 9l6 6M18 9l-6 6",
        "edit": "M4 20h4L19 9l-4-4L4 16zM14 6l4 4",
        "export": "M12 3v12M7 8l5-5l5 5M5 14v6h14v-6",
        "sync": "M4 12a8 8 0 0 1 14-5M20 12a8 8 0 0 1-14 5M18 3v4h-4M6 21v-4h4",
        "backup": "M4 8h16v12H4zM4 8l2-4h12l2 4M10 13h4",
        "moods": "M12 21a9 9 0 1 0 0-18a9 9 0 0 0 0 18zM8.5 14.5c1.8 2 5.2 2 7 0M9 9.5h.5M15 9.5h.5",
        "bell": "M6 16v-5a6 6 0 0 1 12 0v5l2 2H4zM10 21h4",
        "watch": "M8 6h8v12H8zM9 6l1-3h4l1 3M9 18l1 3h4l1-3"
    })

    Shape {
        anchors.centerIn: parent
        width: 24
        height: 24
        scale: icon.size / 24
        ShapePath {
            strokeColor: icon.color
            strokeWidth: icon.lineWidth
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            joinStyle: ShapePath.RoundJoin
            PathSvg { path: icon.paths[icon.name] || "" }
        }
    }
}
