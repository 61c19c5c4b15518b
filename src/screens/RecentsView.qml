import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The calls of this user, newest first, each a way to call back. The rows
// and their words come from the recents model; this only lays them out.
Item {
    id: view

    required property QtObject model
    required property QtObject shell

    // Looking at the list is what clears the missed count.
    readonly property bool seen: visible && Window.active
    onSeenChanged: if (seen) model.markSeen()
    Connections {
        target: view.model
        function onMissedCountChanged() {
            if (view.seen && view.model.missedCount > 0) view.model.markSeen()
        }
    }

    Component.onCompleted: {
        model.reload()
        if (seen) model.markSeen()
    }

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Recents")

    LoadErrorView {
        objectName: "recentsError"
        anchors.fill: parent
        visible: view.model.view === "error"
        message: view.model.errorText
        onRetry: view.model.reload()
    }
    SkeletonList {
        objectName: "recentsSkeleton"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        visible: view.model.view === "skeleton"
        rows: 8
    }
    SectionEmptyState {
        objectName: "recentsEmpty"
        anchors.fill: parent
        visible: view.model.view === "empty"
        title: qsTr("No calls yet")
        systemImage: "clock"
        description: qsTr("Calls you make or receive appear here.")
    }

    StaleBanner {
        id: banner
        objectName: "recentsStale"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        visible: view.model.view === "list" && view.model.stale
        height: visible ? implicitHeight : 0
        z: 1
        onRetry: view.model.reload()
    }

    ListView {
        id: list
        objectName: "recentsList"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: banner.bottom
        anchors.bottom: parent.bottom
        visible: view.model.view === "list"
        model: view.model
        clip: true
        focus: true
        keyNavigationEnabled: true
        boundsBehavior: Flickable.StopAtBounds
        reuseItems: true
        Accessible.role: Accessible.List
        Accessible.name: qsTr("Recents")
        ScrollBar.vertical: ScrollBar { Accessible.name: qsTr("Recents") }
        Keys.onReturnPressed: if (currentIndex >= 0) view.model.callBack(currentIndex)
        Keys.onEnterPressed: if (currentIndex >= 0) view.model.callBack(currentIndex)
        // The current row is marked once the keyboard moves in the list, not for a mouse.
        property bool navigated: false
        // The desktop's refresh key stands in for a pull on the list.
        Keys.onPressed: (event) => {
            navigated = true
            if (event.key === Qt.Key_F5) {
                view.model.reload()
                event.accepted = true
            }
        }

        delegate: Item {
            id: line
            objectName: "recentRow"
            required property int index
            required property string title
            required property string subtitle
            required property bool missed
            required property bool incoming
            required property bool voicemail
            required property var date
            width: ListView.view.width
            height: 56
            // The last line coming into view asks for the next page.
            Component.onCompleted: view.model.rowShown(index)
            ListView.onReused: view.model.rowShown(index)

            Rectangle {
                anchors.fill: parent
                color: line.ListView.isCurrentItem && list.activeFocus && list.navigated
                       ? Theme.selection : Theme.rowBackground
            }
            CallableRow {
                objectName: "recentCallable"
                anchors.fill: parent
                callEnabled: true
                onCall: view.model.callBack(line.index)

                ListRow {
                    title: line.title
                    titleColor: line.missed ? Theme.danger : Theme.primaryText
                    subtitle: line.subtitle
                    subtitleIcon: line.incoming ? "phone.arrow.down.left" : "phone.arrow.up.right"
                    subtitleIconLabel: line.incoming ? qsTr("Incoming") : qsTr("Outgoing")
                    leading: Component {
                        Avatar {
                            name: line.title
                            size: 40
                            shell: view.shell
                        }
                    }
                    trailing: Component {
                        RowLayout {
                            spacing: 6
                            TintedIcon {
                                objectName: "voicemailMark"
                                visible: line.voicemail
                                name: "recordingtape"
                                size: 13
                                color: Theme.accent
                                Accessible.ignored: !line.voicemail
                                Accessible.name: qsTr("Voicemail")
                            }
                            RowDate {
                                date: line.date
                                shell: view.shell
                            }
                        }
                    }
                }
            }
        }

        footer: Item {
            width: ListView.view ? ListView.view.width : 0
            height: view.model.loading ? 48 : 0
            BusyIndicator {
                objectName: "recentsMore"
                anchors.centerIn: parent
                running: view.model.loading
                visible: running
                height: 32
                width: 32
            }
        }
    }
}
