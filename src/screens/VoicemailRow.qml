import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One message of the mailbox: who called, when and for how long, a dot while
// unread; open, its player, "Call back", and the read and delete actions
// (also on a right click).
Item {
    id: row

    required property var message
    required property QtObject session
    property QtObject phone: null
    property QtObject shell: null
    property QtObject player: null
    property bool expanded: false
    signal toggled()

    readonly property bool isCurrent: player !== null && player.current === message.id
    readonly property bool isPlaying: isCurrent && player.playing
    readonly property bool hasCaller: message.caller.length > 0
    readonly property real total: message.durationS >= 0 ? message.durationS : 0

    // Minutes and seconds: 0:07, 12:30.
    function duration(seconds) { return player ? player.durationText(seconds) : "" }

    objectName: "voicemailRow_" + message.id
    implicitHeight: line.implicitHeight + (expanded ? panel.implicitHeight : 0) + 1

    Rectangle {
        anchors.fill: parent
        color: line.hovered || row.expanded ? Theme.fieldBackground : Theme.rowBackground
    }

    AbstractButton {
        id: line
        Accessible.onPressAction: clicked()
        objectName: "voicemailLine"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        implicitHeight: content.implicitHeight
        hoverEnabled: true
        focusPolicy: Qt.StrongFocus
        Accessible.role: Accessible.ListItem
        Accessible.name: (row.message.read ? "" : qsTr("Unread") + ", ") + row.message.title
                         + ", " + dateText.text
        onClicked: row.toggled()

        TapHandler {
            acceptedButtons: Qt.RightButton
            onTapped: actions.popup()
        }

        ListRow {
            id: content
            anchors.left: parent.left
            anchors.right: parent.right
            title: row.message.title
            emphasized: !row.message.read
            subtitle: row.total > 0 ? row.duration(row.total) : ""
            leading: Component {
                Row {
                    spacing: 8
                    Rectangle {
                        objectName: "unreadDot"
                        anchors.verticalCenter: parent.verticalCenter
                        width: 10
                        height: 10
                        radius: 5
                        color: row.message.read ? "transparent" : Theme.accent
                        Accessible.role: Accessible.StaticText
                        Accessible.name: row.message.read ? "" : qsTr("Unread")
                        Accessible.ignored: row.message.read
                    }
                    Avatar {
                        name: row.message.title
                        size: 36
                        shell: row.shell
                    }
                }
            }
            trailing: Component {
                RowDate {
                    date: new Date(row.message.createdAt)
                    shell: row.shell
                }
            }
        }
        // For the accessible name: the same words as the row's date.
        RowDate {
            id: dateText
            visible: false
            date: new Date(row.message.createdAt)
            shell: row.shell
        }
    }

    ColumnLayout {
        id: panel
        objectName: "voicemailPanel"
        visible: row.expanded
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: line.bottom
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        spacing: 6

        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 4
            spacing: 12

            AbstractButton {
                Accessible.onPressAction: clicked()
                objectName: "playButton"
                implicitWidth: 44
                implicitHeight: 44
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: row.isPlaying ? qsTr("Pause") : qsTr("Play")
                ToolTip.visible: hovered
                ToolTip.text: Accessible.name
                ToolTip.delay: 600
                background: Rectangle {
                    radius: 22
                    color: Theme.accent
                    border.width: parent.visualFocus ? 2 : 0
                    border.color: Theme.primaryText
                }
                contentItem: Item {
                    TintedIcon {
                        anchors.centerIn: parent
                        name: row.isPlaying ? "pause.fill" : "play.fill"
                        size: 18
                        color: "white"
                    }
                }
                onClicked: row.player.playMessage(row.message.id)
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                ProgressBar {
                    id: bar
                    objectName: "progress"
                    Layout.fillWidth: true
                    from: 0
                    to: 1
                    value: row.isCurrent ? row.player.progress : 0
                    background: Rectangle {
                        implicitHeight: 4
                        radius: 2
                        color: Qt.rgba(Theme.secondaryText.r, Theme.secondaryText.g,
                                       Theme.secondaryText.b, 0.35)
                    }
                    contentItem: Item {
                        implicitHeight: 4
                        Rectangle {
                            width: bar.visualPosition * parent.width
                            height: parent.height
                            radius: 2
                            color: Theme.accent
                        }
                    }
                    // A click places the sound there.
                    MouseArea {
                        anchors.fill: parent
                        enabled: row.isCurrent
                        onClicked: (mouse) => row.player.seek(mouse.x / width)
                    }
                }
                RowLayout {
                    Layout.fillWidth: true
                    Text {
                        objectName: "elapsed"
                        text: row.duration(row.isCurrent ? row.player.elapsed : 0)
                        color: Theme.secondaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 11
                    }
                    Item { Layout.fillWidth: true }
                    Text {
                        objectName: "total"
                        text: row.duration(row.total)
                        color: Theme.secondaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 11
                    }
                }
            }
            AbstractButton {
                Accessible.onPressAction: clicked()
                objectName: "callBackButton"
                visible: row.hasCaller
                implicitWidth: 44
                implicitHeight: 44
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: qsTr("Call back")
                ToolTip.visible: hovered
                ToolTip.text: Accessible.name
                ToolTip.delay: 600
                background: Rectangle {
                    radius: 22
                    color: Theme.positive
                    border.width: parent.visualFocus ? 2 : 0
                    border.color: Theme.primaryText
                }
                contentItem: Item {
                    TintedIcon {
                        anchors.centerIn: parent
                        name: "phone.fill"
                        size: 18
                        color: "white"
                    }
                }
                onClicked: if (row.phone) row.phone.dial(row.message.caller)
            }
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.bottomMargin: 8
            spacing: 8
            Button {
                Accessible.onPressAction: clicked()
                objectName: "readButton"
                flat: true
                text: row.message.read ? qsTr("Unread") : qsTr("Read")
                icon.source: Icons.of(row.message.read ? "envelope.badge" : "envelope.open")
                icon.color: Theme.accent
                palette.buttonText: Theme.primaryText
                onClicked: row.session.setReadFromScreen(row.message.id, !row.message.read)
            }
            Item { Layout.fillWidth: true }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "deleteButton"
                flat: true
                text: qsTr("Delete")
                icon.source: Icons.of("trash")
                icon.color: Theme.danger
                palette.buttonText: Theme.danger
                onClicked: row.player.deleteMessage(row.message.id)
            }
        }
    }

    Rectangle {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.leftMargin: 16
        height: 1
        color: Theme.separator
    }

    Menu {
        id: actions
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: row.message.read ? qsTr("Mark as unread") : qsTr("Mark as read")
            onTriggered: row.session.setReadFromScreen(row.message.id, !row.message.read)
        }
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Delete")
            onTriggered: row.player.deleteMessage(row.message.id)
        }
    }
}
