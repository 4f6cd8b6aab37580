// A raised surface with rounded corners: the app's basic container.
import QtQuick
import Lumeo.Core

Rectangle {
    property int padding: Theme.spacing * 2
    color: Theme.surface
    radius: Theme.radius
    border.color: Theme.separator
    border.width: 1
}
