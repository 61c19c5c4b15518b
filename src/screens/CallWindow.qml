import QtQuick
import QtQuick.Controls

// The call window: no title bar, dragged by its background, its size that of
// its content, at the top right of the screen. The mini bar form stays above
// other windows; the full form does not.
ApplicationWindow {
    id: window

    required property QtObject phone
    required property QtObject windows
    property QtObject session: null
    // The shell's state: the conference of the call in front.
    property QtObject shell: null

    readonly property bool miniBar: windows.miniBar
    readonly property bool hasCall: phone.hasActiveCall

    title: qsTr("Call")
    flags: Qt.Window | Qt.FramelessWindowHint | (miniBar ? Qt.WindowStaysOnTopHint : 0)
    width: content.item ? content.item.implicitWidth : 1
    height: content.item ? content.item.implicitHeight : 1
    color: Theme.windowBackground
    font.family: Theme.fontFamily

    // Top right of the screen, a little in from its edges.
    function placeAtTopTrailing() {
        const area = screen.desktopAvailableWidth > 0 ? Qt.rect(0, 0, screen.desktopAvailableWidth,
                                                                 screen.desktopAvailableHeight)
                                                      : Qt.rect(0, 0, 1280, 800)
        x = area.x + area.width - width - 24
        y = area.y + 48
    }

    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.width: 1
        border.color: Theme.separator
        z: 1
    }

    // Dragging anywhere on the background moves the window.
    DragHandler {
        target: null
        onActiveChanged: if (active) window.startSystemMove()
    }

    Loader {
        id: content
        anchors.fill: parent
        focus: true
        sourceComponent: !window.hasCall ? null : window.miniBar ? miniBarForm : fullForm
    }

    CallButton {
        objectName: "miniBarButton"
        visible: window.hasCall && !window.miniBar
        anchors.top: parent.top
        anchors.right: parent.right
        anchors.margins: 8
        z: 2
        size: 28
        systemImage: "arrow.down.right.and.arrow.up.left"
        toolTip: qsTr("Mini bar")
        accessibleName: qsTr("Mini bar")
        onClicked: window.windows.miniBar = true
    }

    RecordPill {
        objectName: "recordPill"
        anchors.top: parent.top
        anchors.left: parent.left
        anchors.margins: 10
        z: 2
        visible: window.hasCall && !window.miniBar && (canRecord || recording)
        recording: window.windows.callRecorded
        canRecord: window.session ? window.session.canRecord : false
        enabled: window.session !== null
        // The new state comes back through the live updates.
        onRecordingRequested: (on) => window.session.setRecordingFromScreen(on)
    }

    Component {
        id: fullForm
        CallScreen {
            phone: window.phone
            windows: window.windows
            session: window.session
            shell: window.shell
        }
    }

    Component {
        id: miniBarForm
        MiniBar {
            phone: window.phone
            windows: window.windows
            shell: window.shell
        }
    }
}
