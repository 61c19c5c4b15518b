import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window: do-not-disturb, forwarding, the tray switch and the
// way out; the rest of the settings join it later.
ApplicationWindow {
    id: window

    required property QtObject session
    required property QtObject phone
    required property QtObject shell
    // ColleagueContacts; the row is left out where none is given.
    property QtObject colleagues: null

    title: qsTr("Settings")
    width: 520
    height: 620
    minimumWidth: 460
    minimumHeight: 480
    color: Theme.windowBackground
    font.family: Theme.fontFamily

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 8

        // --- do not disturb and forwarding ---
        RowLayout {
            Layout.fillWidth: true
            spacing: 10
            TintedIcon {
                name: "moon.fill"
                size: 16
                color: Theme.purple
            }
            Switch {
                Accessible.onPressAction: { toggle(); toggled() }
                objectName: "dndSwitch"
                Layout.fillWidth: true
                text: qsTr("Do not disturb")
                palette.windowText: Theme.primaryText
                palette.base: Theme.fieldBackground
                enabled: window.session.hasMe
                checked: window.session.dnd
                Accessible.name: text
                onToggled: {
                    window.session.setDndFromScreen(checked)
                    // The flag stays the session's: a rollback shows here too.
                    checked = Qt.binding(() => window.session.dnd)
                }
            }
        }
        Label {
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            color: Theme.secondaryText
            text: qsTr("Do not disturb: none of your phones rings, also not for group calls.")
        }
        ItemDelegate {
            Accessible.onPressAction: clicked()
            objectName: "forwardingRow"
            Layout.fillWidth: true
            enabled: window.session.hasMe
            Accessible.name: qsTr("Forwarding") + ", " + window.shell.forwardingSummary
            background: Rectangle {
                radius: 6
                color: parent.hovered ? Theme.fieldBackground : "transparent"
                border.width: parent.visualFocus ? 2 : 0
                border.color: Theme.accent
            }
            contentItem: RowLayout {
                spacing: 10
                TintedIcon {
                    name: "arrow.turn.up.right"
                    size: 16
                    color: Theme.accent
                }
                Label {
                    Layout.fillWidth: true
                    text: qsTr("Forwarding")
                    color: Theme.primaryText
                }
                Label {
                    objectName: "forwardingSummary"
                    text: window.shell.forwardingSummary
                    color: Theme.secondaryText
                }
                TintedIcon {
                    name: "chevron.right"
                    size: 12
                    color: Theme.secondaryText
                }
            }
            onClicked: forwarding.openEditor()
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
        // --- end of do not disturb and forwarding ---

        // --- colleagues in contacts ---
        Loader {
            objectName: "colleaguesRow"
            Layout.fillWidth: true
            active: window.colleagues !== null
            visible: active
            sourceComponent: ColleaguesToggle {
                colleagues: window.colleagues
            }
        }
        Rectangle {
            Layout.fillWidth: true
            height: 1
            color: Theme.separator
            visible: window.colleagues !== null
        }
        // --- end of colleagues in contacts ---

        Switch {
            id: keep
            Accessible.onPressAction: { toggle(); toggled() }
            objectName: "keepInTraySwitch"
            text: qsTr("Keep running in the tray")
            checked: window.shell.keepInTray
            onToggled: window.shell.keepInTray = checked
            Accessible.name: text
        }
        Label {
            objectName: "keepInTrayText"
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            color: Theme.secondaryText
            text: !window.shell.keepInTray
                  ? qsTr("Closing the window quits velnor RZ; calls then only reach your other devices.")
                  : window.shell.trayShown
                    ? qsTr("Closing the window keeps velnor RZ in the tray, so calls still reach this computer.")
                    : qsTr("This desktop shows no tray. Closing the window keeps velnor RZ running, so calls still reach this computer; start velnor RZ again to bring its window back.")
        }
        Label {
            objectName: "globalShortcutsText"
            Layout.fillWidth: true
            Layout.topMargin: 12
            wrapMode: Text.Wrap
            color: Theme.secondaryText
            text: window.shell.globalShortcuts
                  ? qsTr("Answer, hang up and mute work from anywhere with the keys chosen in the desktop's shortcut settings.")
                  : qsTr("This desktop offers no global shortcuts: answer, hang up and mute work while a velnor RZ window is in front.")
        }
        Item { Layout.fillHeight: true }
        Button {
            Accessible.onPressAction: clicked()
            objectName: "signOutButton"
            visible: window.session.stateName === "signedIn"
            text: qsTr("Sign out")
            onClicked: window.session.signOutKeepingDeviceFromScreen()
        }
    }

    // --- forwarding editor ---
    Popup {
        id: forwarding
        objectName: "forwardingEditor"
        property QtObject draft: null
        function openEditor() {
            draft = window.shell.newForwardingDraft()
            open()
        }
        modal: true
        focus: true
        anchors.centerIn: parent
        width: Math.min(window.width - 32, 460)
        height: Math.min(window.height - 32, 440)
        padding: 0
        background: Rectangle {
            color: Theme.windowBackground
            radius: 10
            border.color: Theme.separator
        }
        onClosed: draft = null
        Loader {
            anchors.fill: parent
            active: forwarding.draft !== null
            sourceComponent: ForwardingView {
                objectName: "forwardingView"
                draft: forwarding.draft
                shell: window.shell
                onDone: forwarding.close()
            }
        }
    }
    // --- end of forwarding editor ---
}
