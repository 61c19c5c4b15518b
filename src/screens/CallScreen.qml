import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The call window's full form: the call on hold when there is one, who is on
// the call, its state and timer, the statistics when open, and large
// controls — Decline and Answer while it rings in, otherwise Mute, Keypad,
// Hold, Transfer, Add and End, with the keypad opening below. Transfer and
// Add open the sheet in place of the controls.
FocusScope {
    id: screen

    required property QtObject phone
    required property QtObject windows
    property QtObject session: null
    property QtObject shell: null

    readonly property var call: phone.activeCall
    readonly property bool incoming: call.status === "incoming"
    readonly property string name: call.name || ""
    readonly property string number: call.number || ""
    property bool showKeypad: false
    property string dialed: ""
    // --- two calls and statistics ---
    property bool showTransfer: false
    property bool showAddCall: false
    readonly property var held: phone.heldCall
    readonly property bool hasHeld: held.uuid !== undefined
    readonly property bool connected: call.status === "connected"
    readonly property QtObject stats: session ? session.callStatistics : null
    // --- conference ---
    readonly property QtObject conference: shell ? shell.conference : null
    readonly property bool inConference: conference !== null && conference.active
    // The host's "Add" brings someone into the conference rather than calling beside it.
    readonly property bool addsParticipant: inConference && conference.isHost
    property bool showAddParticipant: false
    readonly property bool sheetOpen: showTransfer || showAddCall || showAddParticipant

    implicitWidth: 320
    implicitHeight: column.implicitHeight + 40

    // A call handled from the keyboard alone: the same keys wherever the
    // focus is in the window, each shown in its button's tool-tip.
    Shortcut {
        id: answerKey
        sequence: "Ctrl+Shift+A"
        enabled: screen.incoming
        onActivated: screen.phone.answer()
    }
    Shortcut {
        id: endKey
        sequence: "Ctrl+Shift+E"
        onActivated: screen.phone.hangUpActive()
    }
    Shortcut {
        id: muteKey
        sequence: "Ctrl+Shift+M"
        enabled: !screen.incoming
        onActivated: screen.phone.setActiveMuted(!screen.call.muted)
    }
    Shortcut {
        id: keypadKey
        sequence: "Ctrl+Shift+K"
        enabled: !screen.incoming && !screen.sheetOpen
        onActivated: screen.showKeypad = !screen.showKeypad
    }
    Shortcut {
        id: holdKey
        sequence: "Ctrl+Shift+H"
        enabled: screen.connected
        onActivated: screen.phone.toggleHold()
    }
    Shortcut {
        id: transferKey
        sequence: "Ctrl+Shift+T"
        enabled: screen.connected && !screen.sheetOpen
        onActivated: screen.showTransfer = true
    }
    Shortcut {
        id: addCallKey
        sequence: "Ctrl+Shift+N"
        enabled: screen.connected && (screen.addsParticipant || !screen.hasHeld) && !screen.sheetOpen
        onActivated: {
            if (screen.addsParticipant)
                screen.showAddParticipant = true
            else
                screen.showAddCall = true
        }
    }

    ColumnLayout {
        id: column
        anchors.top: parent.top
        anchors.topMargin: 20
        anchors.horizontalCenter: parent.horizontalCenter
        width: parent.width - 40
        spacing: 0

        HeldCallStrip {
            objectName: "heldCallStrip"
            visible: screen.hasHeld
            Layout.fillWidth: true
            // Clear of the mini bar button in the corner.
            Layout.rightMargin: 16
            Layout.bottomMargin: 14
            call: screen.held
            canMerge: screen.session ? screen.session.canMerge : false
            onSwap: screen.phone.swap()
            onMerge: screen.session.mergeCallsFromScreen()
        }

        Avatar {
            Layout.alignment: Qt.AlignHCenter
            size: 64
            name: screen.name || screen.number
            shell: screen.shell
        }
        Label {
            objectName: "callName"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 12
            Layout.maximumWidth: column.width
            elide: Text.ElideRight
            text: screen.name || screen.number
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 17
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Label {
            objectName: "callNumber"
            Layout.alignment: Qt.AlignHCenter
            visible: screen.name !== ""
            text: screen.number
            color: Theme.secondaryText
            font.family: Theme.fontFamily
            font.pixelSize: 13
        }
        Label {
            objectName: "callStatus"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 4
            text: screen.windows.statusLine
            color: Theme.secondaryText
            font.family: Theme.fontFamily
            font.pixelSize: 13
            // A screen reader hears a call come in, and the state as it changes.
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        StatsToggle {
            objectName: "statsToggle"
            visible: screen.stats !== null && !screen.incoming
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 4
            shown: screen.windows.showStats
            level: screen.stats ? screen.stats.level : ""
            onToggled: screen.windows.showStats = !screen.windows.showStats
        }
        CallStatsPanel {
            objectName: "statsPanel"
            visible: screen.stats !== null && screen.windows.showStats && !screen.incoming
            Layout.fillWidth: true
            Layout.topMargin: 8
            stats: screen.stats ? screen.stats : emptyStats
        }

        // Made only while the call is in a conference.
        Loader {
            active: screen.inConference && !screen.incoming
            visible: active
            Layout.fillWidth: true
            Layout.topMargin: 12
            sourceComponent: ConferenceView {
                objectName: "conferenceView"
                conference: screen.conference
                shell: screen.shell
                onAddRequested: screen.showAddParticipant = true
            }
        }

        TransferSheet {
            objectName: "transferSheet"
            visible: screen.sheetOpen
            Layout.fillWidth: true
            Layout.topMargin: 12
            session: screen.session
            purpose: screen.showAddParticipant ? "addParticipant"
                   : screen.showAddCall ? "addCall" : "transfer"
            onVisibleChanged: {
                query = ""
                showKeypad = false
                if (visible) forceActiveFocus()
            }
            onCancelled: {
                screen.showTransfer = false
                screen.showAddCall = false
                screen.showAddParticipant = false
            }
            onChosen: number => {
                const adding = screen.showAddCall
                const joining = screen.showAddParticipant
                screen.showTransfer = false
                screen.showAddCall = false
                screen.showAddParticipant = false
                if (joining)
                    screen.conference.add(number)
                else if (adding)
                    screen.phone.dial(number)
                else
                    screen.phone.transfer(number)
            }
        }

        RowLayout {
            objectName: "incomingControls"
            visible: screen.incoming
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 24
            spacing: 48

            CallButton {
                objectName: "declineButton"
                toolTip: qsTr("Decline") + " (" + endKey.nativeText + ")"
                title: qsTr("Decline")
                systemImage: "phone.down.fill"
                tint: Theme.danger
                onClicked: screen.phone.hangUpActive()
            }
            CallButton {
                objectName: "answerButton"
                toolTip: qsTr("Answer") + " (" + answerKey.nativeText + ")"
                title: qsTr("Answer")
                systemImage: "phone.fill"
                tint: Theme.positive
                onClicked: screen.phone.answer()
            }
        }

        RowLayout {
            objectName: "callControls"
            visible: !screen.incoming && !screen.sheetOpen
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 24
            spacing: 16

            CallButton {
                objectName: "muteButton"
                toolTip: (screen.call.muted ? qsTr("Unmute") : qsTr("Mute")) + " (" + muteKey.nativeText + ")"
                title: qsTr("Mute")
                systemImage: screen.call.muted ? "mic.slash.fill" : "mic.fill"
                active: screen.call.muted === true
                accessibleName: screen.call.muted ? qsTr("Unmute") : qsTr("Mute")
                onClicked: screen.phone.setActiveMuted(!screen.call.muted)
            }
            CallButton {
                objectName: "keypadButton"
                toolTip: (screen.showKeypad ? qsTr("Hide keypad") : qsTr("Keypad")) + " (" + keypadKey.nativeText + ")"
                title: qsTr("Keypad")
                systemImage: "circle.grid.3x3.fill"
                active: screen.showKeypad
                accessibleName: screen.showKeypad ? qsTr("Hide keypad") : qsTr("Keypad")
                onClicked: screen.showKeypad = !screen.showKeypad
            }
            CallButton {
                objectName: "holdButton"
                toolTip: (screen.call.held ? qsTr("Resume") : qsTr("Hold")) + " (" + holdKey.nativeText + ")"
                enabled: screen.connected
                title: screen.call.held ? qsTr("Resume") : qsTr("Hold")
                systemImage: screen.call.held ? "play.fill" : "pause.fill"
                active: screen.call.held === true
                onClicked: screen.phone.toggleHold()
            }
            CallButton {
                objectName: "transferButton"
                toolTip: qsTr("Transfer") + " (" + transferKey.nativeText + ")"
                enabled: screen.connected
                title: qsTr("Transfer")
                systemImage: "arrow.turn.up.right"
                onClicked: screen.showTransfer = true
            }
            CallButton {
                objectName: "addCallButton"
                toolTip: (screen.addsParticipant ? qsTr("Add participant") : qsTr("Add call")) + " (" + addCallKey.nativeText + ")"
                enabled: screen.connected && (screen.addsParticipant || !screen.hasHeld)
                title: qsTr("Add")
                systemImage: screen.addsParticipant ? "person.badge.plus" : "plus"
                accessibleName: screen.addsParticipant ? qsTr("Add participant") : qsTr("Add call")
                onClicked: {
                    if (screen.addsParticipant)
                        screen.showAddParticipant = true
                    else
                        screen.showAddCall = true
                }
            }
        }
        CallButton {
            objectName: "endButton"
            toolTip: qsTr("End") + " (" + endKey.nativeText + ")"
            visible: !screen.incoming && !screen.sheetOpen
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 18
            title: qsTr("End")
            systemImage: "phone.down.fill"
            tint: Theme.danger
            onClicked: screen.phone.hangUpActive()
        }

        InCallKeypad {
            id: keypad
            objectName: "inCallKeypad"
            visible: screen.showKeypad && !screen.incoming && !screen.sheetOpen
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 12
            dialed: screen.dialed
            onDialedChanged: screen.dialed = dialed
            onSend: digit => screen.phone.sendActiveDigits(digit)
            onVisibleChanged: if (visible) forceActiveFocus()
        }
    }

    // Figures of nothing, while the screen has no session.
    QtObject {
        id: emptyStats
        readonly property string level: ""
        readonly property string levelText: ""
        readonly property string serverMos: ""
        readonly property string localMos: ""
        readonly property bool hasStats: false
        readonly property string incomingLoss: ""
        readonly property string incomingJitter: ""
        readonly property string outgoingLoss: ""
        readonly property string outgoingJitter: ""
        readonly property string roundTrip: ""
        readonly property string packets: ""
        readonly property string warning: ""
    }
}
