import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The call window as a narrow strip that floats above other windows: who,
// the state, and the few buttons a call needs at a glance.
FocusScope {
    id: bar

    required property QtObject phone
    required property QtObject windows
    property QtObject shell: null

    readonly property var call: phone.activeCall
    readonly property bool incoming: call.status === "incoming"

    implicitWidth: row.implicitWidth + 16
    implicitHeight: row.implicitHeight + 16

    RowLayout {
        id: row
        anchors.centerIn: parent
        spacing: 8

        Avatar {
            size: 32
            name: bar.call.name || bar.call.number || ""
            shell: bar.shell
        }
        ColumnLayout {
            spacing: 0
            Layout.maximumWidth: 160
            Label {
                objectName: "miniName"
                Layout.maximumWidth: 160
                elide: Text.ElideRight
                text: bar.call.name || bar.call.number || ""
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.weight: Font.DemiBold
                font.pixelSize: 13
            }
            Label {
                objectName: "miniStatus"
                text: bar.windows.statusLine
                color: Theme.secondaryText
                font.family: Theme.fontFamily
                font.pixelSize: 11
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
        CallButton {
            objectName: "miniDeclineButton"
            visible: bar.incoming
            size: 32
            systemImage: "phone.down.fill"
            tint: Theme.danger
            accessibleName: qsTr("Decline")
            toolTip: qsTr("Decline")
            onClicked: bar.phone.hangUpActive()
        }
        CallButton {
            objectName: "miniAnswerButton"
            visible: bar.incoming
            size: 32
            systemImage: "phone.fill"
            tint: Theme.positive
            accessibleName: qsTr("Answer")
            toolTip: qsTr("Answer")
            onClicked: bar.phone.answer()
        }
        CallButton {
            objectName: "miniMuteButton"
            visible: !bar.incoming
            size: 32
            systemImage: bar.call.muted ? "mic.slash.fill" : "mic.fill"
            active: bar.call.muted === true
            accessibleName: bar.call.muted ? qsTr("Unmute") : qsTr("Mute")
            toolTip: accessibleName
            onClicked: bar.phone.setActiveMuted(!bar.call.muted)
        }
        CallButton {
            objectName: "miniEndButton"
            visible: !bar.incoming
            size: 32
            systemImage: "phone.down.fill"
            tint: Theme.danger
            accessibleName: qsTr("End")
            toolTip: qsTr("End")
            onClicked: bar.phone.hangUpActive()
        }
        CallButton {
            objectName: "miniSwapButton"
            visible: !bar.incoming && bar.phone.heldCall.uuid !== undefined
            size: 32
            systemImage: "arrow.left.arrow.right"
            accessibleName: qsTr("Swap calls")
            toolTip: qsTr("Swap calls")
            onClicked: bar.phone.swap()
        }
        CallButton {
            objectName: "fullControlsButton"
            size: 32
            systemImage: "arrow.up.left.and.arrow.down.right"
            accessibleName: qsTr("Full controls")
            toolTip: qsTr("Full controls")
            onClicked: bar.windows.miniBar = false
        }
    }
}
