import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One forwarding rule: its title, where its calls go now, and a menu to
// change that (off, my voicemail, a colleague or group, a number, hang up).
Item {
    id: field

    required property string title
    // "always", "busy", "noAnswer" or "offline".
    required property string rule
    required property QtObject draft
    // Asks for a colleague or group, or for a number; the editor shows them.
    signal pickColleague(string rule)
    signal enterNumber(string rule)

    implicitHeight: 48
    implicitWidth: 360

    // The draft's texts change with it.
    Connections {
        target: field.draft
        function onDraftChanged() { value.text = field.draft.text(field.rule) }
    }

    RowLayout {
        anchors.fill: parent
        spacing: 12
        Label {
            Layout.fillWidth: true
            text: field.title
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.pixelSize: 14
        }
        Button {
            id: button
            Accessible.onPressAction: clicked()
            objectName: "target_" + field.rule
            flat: true
            Accessible.name: field.title + ", " + value.text
            contentItem: RowLayout {
                spacing: 6
                Label {
                    id: value
                    objectName: "targetText"
                    text: field.draft.text(field.rule)
                    color: Theme.accent
                    font.family: Theme.fontFamily
                    font.pixelSize: 14
                }
                TintedIcon {
                    name: "chevron.right"
                    size: 12
                    color: Theme.secondaryText
                }
            }
            onClicked: menu.popup(button, 0, button.height)
        }
    }

    Menu {
        id: menu
        objectName: "targetMenu"
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Off")
            onTriggered: field.draft.turnOff(field.rule)
        }
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            objectName: "myVoicemailEntry"
            text: qsTr("My voicemail")
            icon.source: Icons.of("recordingtape")
            // Only for a user with a mailbox.
            visible: field.draft.hasMailbox
            height: visible ? implicitHeight : 0
            onTriggered: field.draft.toMailbox(field.rule)
        }
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Colleague or group…")
            icon.source: Icons.of("person.2")
            onTriggered: field.pickColleague(field.rule)
        }
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Phone number…")
            icon.source: Icons.of("phone")
            onTriggered: field.enterNumber(field.rule)
        }
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Hang up")
            icon.source: Icons.of("phone.down.fill")
            onTriggered: field.draft.toHangUp(field.rule)
        }
    }
}
