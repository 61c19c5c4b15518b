import QtQuick
import QtQuick.Controls

// The main window: what it shows follows the session's state, and one alert
// carries the errors of the phone and the session.
ApplicationWindow {
    id: window

    required property QtObject session
    // The telephone and the shell's state; absent in views rendered without them.
    property QtObject phone: null
    property QtObject shell: null

    title: "velnor RZ"
    width: 920
    height: 640
    minimumWidth: 640
    minimumHeight: 480
    visible: true
    color: Theme.windowBackground
    font.family: Theme.fontFamily

    // The shell reaches the palette through here to keep it in step with the desktop.
    readonly property QtObject theme: Theme

    Loader {
        anchors.fill: parent
        // A focus scope: what the loaded view gives focus to gets the keyboard.
        focus: true
        sourceComponent: {
            switch (window.session.stateName) {
            case "signedOut":
            case "signingIn":
                return login
            case "signedIn":
                return window.phone && window.shell ? signedIn : null
            default:
                return null
            }
        }
    }

    Component {
        id: login

        FocusScope {
            LoginView {
                anchors.centerIn: parent
                width: Math.min(420, parent.width - 48)
                session: window.session
            }
        }
    }

    Component {
        id: signedIn

        RootView {
            focus: true
            session: window.session
            phone: window.phone
            shell: window.shell
        }
    }

    // Ctrl+W closes the window as in any desktop app; the app stays for
    // calls when the keep-running setting is on.
    Shortcut {
        sequences: [StandardKey.Close]
        onActivated: window.close()
    }

    // The one alert of the app: the phone's error before the session's; "OK" clears both.
    Dialog {
        id: alert
        objectName: "errorAlert"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(400, window.width - 48)
        modal: true
        closePolicy: Popup.CloseOnEscape
        title: qsTr("Error")

        Label {
            id: message
            objectName: "errorMessage"
            width: parent.width
            text: window.shell ? window.shell.alertMessage : ""
            wrapMode: Text.Wrap
        }

        footer: DialogButtonBox {
            Button {
                Accessible.onPressAction: clicked()
                objectName: "errorOk"
                text: qsTr("OK")
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }
        onClosed: if (window.shell) window.shell.dismissAlert()

        function follow() {
            if (window.shell && window.shell.alertShown)
                open()
            else
                close()
        }
        Component.onCompleted: follow()
        Connections {
            target: window.shell
            function onAlertChanged() { alert.follow() }
        }
    }
}
