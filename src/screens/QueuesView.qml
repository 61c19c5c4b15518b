import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The queues the user is an agent of, one card each, in the order of the
// user's queue list: logged in or not, paused or not, who waits and for how
// long, and the other agents. It reloads the list as it appears and when
// pulled past its top (or with F5).
Item {
    id: view

    required property QtObject session
    property QtObject shell: null
    readonly property QtObject queues: shell ? shell.queues : null

    readonly property string content: {
        if (!queues) return "loading"
        if (queues.count > 0) return "list"
        return queues.loaded ? "empty" : "loading"
    }

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Queues")

    Component.onCompleted: {
        if (queues) {
            queues.refresh()
            queues.ticking = true
        }
    }
    // The waiting times stop counting while nobody looks at them.
    Component.onDestruction: if (queues) queues.ticking = false
    Keys.onPressed: event => {
        if (event.key === Qt.Key_F5 && queues) {
            queues.refresh()
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.windowBackground
    }

    Text {
        id: heading
        anchors.left: parent.left
        anchors.top: parent.top
        anchors.margins: 16
        text: qsTr("Queues")
        color: Theme.primaryText
        font.family: Theme.fontFamily
        font.pixelSize: 20
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }

    Item {
        anchors.top: heading.bottom
        anchors.topMargin: 8
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom

        SkeletonList {
            objectName: "queuesSkeleton"
            anchors.fill: parent
            visible: view.content === "loading"
            rows: 4
        }
        SectionEmptyState {
            objectName: "queuesEmpty"
            anchors.fill: parent
            visible: view.content === "empty"
            title: qsTr("No queues")
            systemImage: "person.3.sequence"
            description: qsTr("Queues you are an agent of appear here.")
        }

        ListView {
            id: list
            objectName: "queuesList"
            anchors.fill: parent
            visible: view.content === "list"
            clip: true
            spacing: 14
            topMargin: 8
            bottomMargin: 16
            model: view.queues
            boundsBehavior: Flickable.DragOverBounds
            // A pull past the top reloads the queues.
            onVerticalOvershootChanged: if (verticalOvershoot < -60 && dragging)
                                            view.queues.refresh()
            ScrollBar.vertical: ScrollBar { Accessible.name: qsTr("Queues") }

            delegate: QueueCard {
                objectName: "queueCard_" + queueId
                x: 16
                width: ListView.view.width - 32
                queues: view.queues
            }
        }
    }
}
