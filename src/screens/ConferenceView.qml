import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The conference of the call in front: a head with the count and the lock,
// the host's menu, and a tile per participant. It changes nothing itself:
// each action asks the server, and the tiles show what the live updates say.
ColumnLayout {
    id: view

    required property QtObject conference
    property QtObject shell: null
    property bool compact: false
    // The host asks to add someone; the call screen opens its search.
    signal addRequested()

    readonly property real tileSize: compact ? 44 : 60
    readonly property real columnWidth: compact ? 64 : 84

    spacing: 6

    RowLayout {
        Layout.fillWidth: true
        spacing: 6
        TintedIcon {
            name: "person.3.fill"
            color: Theme.accent
        }
        Text {
            objectName: "conferenceTitle"
            text: view.conference.title
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 13
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        TintedIcon {
            objectName: "conferenceLocked"
            visible: view.conference.locked
            name: "lock.fill"
            size: 12
            color: Theme.secondaryText
            Accessible.ignored: false
            Accessible.role: Accessible.StaticText
            Accessible.name: qsTr("Locked")
        }
        Item { Layout.fillWidth: true }
        ToolButton {
            id: optionsButton
            Accessible.onPressAction: clicked()
            objectName: "conferenceOptions"
            visible: view.conference.isHost
            Layout.rightMargin: 8
            icon.source: Icons.of("ellipsis.circle")
            icon.color: Theme.primaryText
            icon.width: 18
            icon.height: 18
            Accessible.name: qsTr("Conference options")
            ToolTip.visible: hovered
            ToolTip.text: qsTr("Conference options")
            onClicked: optionsMenu.open()

            Menu {
                id: optionsMenu
                objectName: "conferenceMenu"
                y: optionsButton.height
                MenuItem {
                    Accessible.onPressAction: { triggered(); if (menu) menu.close() }
                    objectName: "lockItem"
                    text: view.conference.locked ? qsTr("Unlock") : qsTr("Lock")
                    icon.source: Icons.of(view.conference.locked ? "lock.open" : "lock")
                    onTriggered: view.conference.setLocked(!view.conference.locked)
                }
                MenuItem {
                    Accessible.onPressAction: { triggered(); if (menu) menu.close() }
                    objectName: "addParticipantItem"
                    text: qsTr("Add participant")
                    icon.source: Icons.of("person.badge.plus")
                    onTriggered: view.addRequested()
                }
                MenuSeparator {}
                MenuItem {
                    Accessible.onPressAction: { triggered(); if (menu) menu.close() }
                    objectName: "endItem"
                    text: qsTr("End for everyone")
                    icon.source: Icons.of("phone.down.fill")
                    icon.color: Theme.danger
                    palette.windowText: Theme.danger
                    onTriggered: view.conference.end()
                }
            }
        }
    }

    GridView {
        id: grid
        objectName: "participantGrid"
        Layout.fillWidth: true
        // Adaptive columns: as many of the least width as fit, sharing what is left.
        readonly property int columns: Math.max(1, Math.floor((width + 12) / (view.columnWidth + 12)))
        cellWidth: width / columns
        cellHeight: view.tileSize + 40
        Layout.preferredHeight: Math.ceil(count / columns) * cellHeight
        interactive: false
        model: view.conference
        delegate: ParticipantTile {
            width: grid.cellWidth
            size: view.tileSize
            shell: view.shell
            conference: view.conference
        }
    }
}
