import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window. For now it holds what the tray needs and the way out;
// the rest of the settings join it later.
ApplicationWindow {
    id: window

    required property QtObject session
    required property QtObject phone
    required property QtObject shell

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

        Switch {
            id: keep
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
            objectName: "signOutButton"
            visible: window.session.stateName === "signedIn"
            text: qsTr("Sign out")
            onClicked: window.session.signOutKeepingDeviceFromScreen()
        }
    }
}
