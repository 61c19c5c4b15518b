import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The switch that copies colleagues into the desktop's address book: its
// status line while on, the last error in its own line, and what it does.
ColumnLayout {
    id: row

    required property QtObject colleagues

    spacing: 4

    RowLayout {
        Layout.fillWidth: true
        spacing: 10
        TintedIcon {
            name: "person.crop.circle.badge.plus"
            size: 16
            color: Theme.accent
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 0
            Label {
                Layout.fillWidth: true
                text: qsTr("Colleagues in Contacts")
                color: Theme.primaryText
            }
            Label {
                objectName: "colleaguesStatus"
                Layout.fillWidth: true
                visible: row.colleagues.enabled
                text: row.colleagues.statusLine
                color: Theme.secondaryText
                font.pixelSize: 12
            }
        }
        Switch {
            Accessible.onPressAction: { toggle(); toggled() }
            objectName: "colleaguesSwitch"
            checked: row.colleagues.enabled
            palette.base: Theme.fieldBackground
            Accessible.name: qsTr("Colleagues in Contacts")
            onToggled: {
                row.colleagues.setEnabledFromScreen(checked)
                // The switch shows what the address book got: without access it falls back.
                checked = Qt.binding(() => row.colleagues.enabled)
            }
        }
    }
    Label {
        objectName: "colleaguesError"
        Layout.fillWidth: true
        visible: row.colleagues.hasLastError
        wrapMode: Text.Wrap
        text: row.colleagues.lastError
        color: Theme.danger
    }
    Label {
        objectName: "colleaguesFooter"
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        color: Theme.secondaryText
        text: qsTr("Adds colleagues with a direct number to your contacts (group \"velnor RZ\"). Turning it off removes them again.")
    }
}
