import QtQuick
import QtQuick.Controls

// The main window: what it shows follows the session's state.
ApplicationWindow {
    id: window

    required property QtObject session
    // The telephone; absent in views rendered without one.
    property QtObject phone: null

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
                return signedIn
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

        SignedInView {
            session: window.session
            phone: window.phone
        }
    }
}
