// The window: the shell fills it. Hiding or minimising the window is the
// desktop's "background": the journal saves and, with a passcode set, locks
// until the window comes back and the code is entered.
import QtQuick
import QtQuick.Controls.Basic
import Lumeo.Core

ApplicationWindow {
    id: window
    width: 420
    height: 760
    minimumWidth: 360
    minimumHeight: 520
    visible: true
    title: appSampleJournal ? L10n.tr("Lumeo — sample journal") : "Lumeo"
    color: Theme.background

    // Hidden, minimised, on another desktop or behind the screen lock: the
    // watch tells the shell (see lock_window_watch.h).
    Component.onCompleted: LockWindow.watch(window)

    AppShell {
        anchors.fill: parent
        screenshotMode: appScreenshotMode
    }
}
