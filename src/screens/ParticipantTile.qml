import QtQuick
import QtQuick.Controls

// One participant: the picture with a ring while they talk and a badge while
// muted, and the name. The host's right click mutes or removes anyone but
// the host.
Column {
    id: tile

    required property string participantId
    required property string name
    required property bool isMe
    required property bool muted
    required property bool talking
    required property string avatar
    required property bool manageable
    required property string avatarName
    property QtObject conference: null
    property QtObject shell: null
    property real size: 60

    objectName: "participantTile_" + participantId
    spacing: 6
    Accessible.role: Accessible.ListItem
    Accessible.name: name + (muted ? ", " + qsTr("Muted") : "")
    Accessible.selected: talking
    Accessible.selectable: true

    Item {
        anchors.horizontalCenter: parent.horizontalCenter
        width: tile.size
        height: tile.size

        Avatar {
            anchors.fill: parent
            size: tile.size
            name: tile.avatarName
            image: tile.avatar
            shell: tile.shell
        }
        Rectangle {
            objectName: "talkingRing"
            anchors.fill: parent
            anchors.margins: -4
            radius: 11
            color: "transparent"
            border.width: 3
            border.color: Theme.accent
            opacity: tile.talking ? 1 : 0
            Behavior on opacity { NumberAnimation { duration: 150; easing.type: Easing.OutQuad } }
        }
        Rectangle {
            objectName: "mutedBadge"
            visible: tile.muted
            width: 20
            height: 20
            radius: 10
            x: parent.width - width + 5
            y: parent.height - height + 5
            color: Theme.danger
            Accessible.role: Accessible.StaticText
            Accessible.name: qsTr("Muted")
            TintedIcon {
                anchors.centerIn: parent
                name: "mic.slash.fill"
                size: 12
                color: "white"
            }
        }
        MouseArea {
            anchors.fill: parent
            acceptedButtons: Qt.RightButton
            enabled: tile.manageable
            onClicked: tileMenu.popup()
        }
        Menu {
            id: tileMenu
            objectName: "participantMenu"
            MenuItem {
                Accessible.onPressAction: { triggered(); if (menu) menu.close() }
                objectName: "muteItem"
                text: tile.muted ? qsTr("Unmute") : qsTr("Mute")
                icon.source: Icons.of(tile.muted ? "mic.fill" : "mic.slash.fill")
                onTriggered: tile.conference.setMuted(tile.participantId, !tile.muted)
            }
            MenuItem {
                Accessible.onPressAction: { triggered(); if (menu) menu.close() }
                objectName: "removeItem"
                text: qsTr("Remove from conference")
                icon.source: Icons.of("person.fill.xmark")
                icon.color: Theme.danger
                palette.windowText: Theme.danger
                onTriggered: tile.conference.remove(tile.participantId)
            }
        }
    }
    Text {
        objectName: "participantName"
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(implicitWidth, tile.width)
        horizontalAlignment: Text.AlignHCenter
        elide: Text.ElideRight
        text: tile.name
        color: Theme.primaryText
        font.family: Theme.fontFamily
        font.pixelSize: 10
    }
}
