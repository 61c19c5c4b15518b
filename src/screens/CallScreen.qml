import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The call window's full form: who is on the call, its state and timer, and
// large controls — Decline and Answer while it rings in, otherwise Mute,
// Keypad and End, with the keypad opening below.
FocusScope {
    id: screen

    required property QtObject phone
    required property QtObject windows

    readonly property var call: phone.activeCall
    readonly property bool incoming: call.status === "incoming"
    readonly property string name: call.name || ""
    readonly property string number: call.number || ""
    property bool showKeypad: false
    property string dialed: ""

    implicitWidth: 320
    implicitHeight: column.implicitHeight + 40

    ColumnLayout {
        id: column
        anchors.top: parent.top
        anchors.topMargin: 20
        anchors.horizontalCenter: parent.horizontalCenter
        width: parent.width - 40
        spacing: 0

        CallAvatar {
            Layout.alignment: Qt.AlignHCenter
            size: 64
            name: screen.name
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

        RowLayout {
            objectName: "incomingControls"
            visible: screen.incoming
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 24
            spacing: 48

            CallButton {
                objectName: "declineButton"
                title: qsTr("Decline")
                systemImage: "phone.down.fill"
                tint: Theme.danger
                onClicked: screen.phone.hangUpActive()
            }
            CallButton {
                objectName: "answerButton"
                title: qsTr("Answer")
                systemImage: "phone.fill"
                tint: Theme.positive
                onClicked: screen.phone.answer()
            }
        }

        RowLayout {
            objectName: "callControls"
            visible: !screen.incoming
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 24
            spacing: 28

            CallButton {
                objectName: "muteButton"
                title: qsTr("Mute")
                systemImage: screen.call.muted ? "mic.slash.fill" : "mic.fill"
                active: screen.call.muted === true
                accessibleName: screen.call.muted ? qsTr("Unmute") : qsTr("Mute")
                onClicked: screen.phone.setActiveMuted(!screen.call.muted)
            }
            CallButton {
                objectName: "keypadButton"
                title: qsTr("Keypad")
                systemImage: "circle.grid.3x3.fill"
                active: screen.showKeypad
                accessibleName: screen.showKeypad ? qsTr("Hide keypad") : qsTr("Keypad")
                onClicked: screen.showKeypad = !screen.showKeypad
            }
        }
        CallButton {
            objectName: "endButton"
            visible: !screen.incoming
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
            visible: screen.showKeypad && !screen.incoming
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 12
            dialed: screen.dialed
            onDialedChanged: screen.dialed = dialed
            onSend: digit => screen.phone.sendActiveDigits(digit)
            onVisibleChanged: if (visible) forceActiveFocus()
        }
    }
}
