import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The mailbox: one line per message, newest first. A click opens a message in
// place to play it, call back, mark it or delete it; one is open at a time.
Item {
    id: view

    required property QtObject session
    property QtObject phone: null
    property QtObject shell: null
    // Plays one message at a time and says how far it has got.
    property QtObject player: shell ? shell.voicemailPlayer : null
    // The id of the open message, "" for none.
    property string expanded: ""

    // The loading ladder: which one view shows.
    readonly property string content: {
        if (session.hasMe && !session.hasVoicemailBox) return "noMailbox"
        if (!session.voicemailLoaded) return "loading"
        if (session.voicemail.length === 0 && session.voicemailError.length > 0) return "error"
        if (session.voicemail.length > 0) return "list"
        return "empty"
    }

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Voicemail")

    Component.onCompleted: {
        session.refreshVoicemailFromScreen()
        // The sound pipeline is set up while the list loads, not at the first press.
        Qt.callLater(() => { if (view.player) view.player.prepare() })
    }
    // Nothing plays on once the screen is gone.
    Component.onDestruction: if (player) player.stop()

    Rectangle {
        anchors.fill: parent
        color: Theme.windowBackground
    }

    Text {
        id: heading
        anchors.left: parent.left
        anchors.top: parent.top
        anchors.margins: 16
        text: qsTr("Voicemail")
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

        SectionEmptyState {
            objectName: "voicemailNoMailbox"
            anchors.fill: parent
            visible: view.content === "noMailbox"
            title: qsTr("No mailbox")
            systemImage: "recordingtape"
            description: qsTr("Your account has no mailbox in velnor RZ.")
        }
        SkeletonList {
            objectName: "voicemailSkeleton"
            anchors.fill: parent
            visible: view.content === "loading"
            rows: 5
        }
        LoadErrorView {
            objectName: "voicemailLoadError"
            anchors.fill: parent
            visible: view.content === "error"
            message: view.session.voicemailError
            onRetry: view.session.refreshVoicemailFromScreen()
        }
        SectionEmptyState {
            objectName: "voicemailEmpty"
            anchors.fill: parent
            visible: view.content === "empty"
            title: qsTr("No messages")
            systemImage: "recordingtape"
            description: qsTr("Voicemail messages appear here.")
        }

        ColumnLayout {
            anchors.fill: parent
            visible: view.content === "list"
            spacing: 0

            StaleBanner {
                objectName: "voicemailStale"
                Layout.fillWidth: true
                visible: view.session.voicemailError.length > 0
                onRetry: view.session.refreshVoicemailFromScreen()
            }

            ListView {
                id: list
                objectName: "voicemailList"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                model: view.session.voicemail
                boundsBehavior: Flickable.DragOverBounds
                // A pull past the top reloads the mailbox.
                onVerticalOvershootChanged: if (verticalOvershoot < -60 && dragging)
                                                view.session.refreshVoicemailFromScreen()
                ScrollBar.vertical: ScrollBar { Accessible.name: qsTr("Voicemail") }

                delegate: VoicemailRow {
                    required property var modelData
                    width: ListView.view.width
                    message: modelData
                    session: view.session
                    phone: view.phone
                    shell: view.shell
                    player: view.player
                    expanded: view.expanded === modelData.id
                    onToggled: view.expanded = expanded ? "" : modelData.id
                }
            }
        }
    }
}
