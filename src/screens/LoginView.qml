import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// Shown while signed out or signing in: one action, the browser sign-in, and
// a way to point the app at another dashboard. No password is ever typed here.
ColumnLayout {
    id: view

    required property QtObject session
    readonly property bool signingIn: session.stateName === "signingIn"

    spacing: 0

    Row {
        Layout.alignment: Qt.AlignHCenter
        spacing: 12
        Accessible.role: Accessible.Graphic
        Accessible.name: "velnor"

        Image {
            anchors.verticalCenter: parent.verticalCenter
            source: "qrc:/images/net.velnor.rz.svg"
            sourceSize: Qt.size(52, 52)
        }
        Label {
            anchors.verticalCenter: parent.verticalCenter
            text: "velnor"
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 44
        }
    }

    Label {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 12
        text: qsTr("RZ · Phone system")
        color: Theme.secondaryText
        font.pixelSize: 13
    }

    Label {
        objectName: "loginError"
        Layout.fillWidth: true
        Layout.topMargin: 24
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        visible: view.session.hasError
        text: view.session.error
        color: Theme.danger
        wrapMode: Text.Wrap
        horizontalAlignment: Text.AlignHCenter
        font.pixelSize: 13
    }

    Button {
        id: signInButton
        Accessible.onPressAction: clicked()
        objectName: "signInButton"
        Layout.fillWidth: true
        Layout.topMargin: 16
        Layout.leftMargin: 24
        Layout.rightMargin: 24
        Layout.preferredHeight: 52
        visible: !view.signingIn
        // The one thing to do here, so the keyboard starts on it.
        focus: !view.signingIn
        text: qsTr("Sign in with velnor RZ")
        onClicked: view.session.signIn()
        Keys.onReturnPressed: clicked()
        Keys.onEnterPressed: clicked()

        contentItem: Label {
            text: signInButton.text
            color: "white"
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 15
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
        }
        background: Rectangle {
            radius: 26
            color: signInButton.down ? Qt.darker(Theme.accent, 1.15)
                 : signInButton.hovered ? Qt.lighter(Theme.accent, 1.08) : Theme.accent
        }
    }

    ColumnLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 16
        visible: view.signingIn
        spacing: 10

        BusyIndicator {
            Layout.alignment: Qt.AlignHCenter
            running: view.signingIn
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Continue in your browser.")
            color: Theme.secondaryText
            font.pixelSize: 13
        }
        Button {
            Accessible.onPressAction: clicked()
            objectName: "cancelButton"
            Layout.alignment: Qt.AlignHCenter
            flat: true
            focus: view.signingIn
            text: qsTr("Cancel")
            palette.buttonText: Theme.accent
            onClicked: view.session.cancelSignIn()
        }
    }

    Button {
        id: otherServer
        Accessible.onPressAction: clicked()
        objectName: "otherServerButton"
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 16
        visible: !view.signingIn
        flat: true
        text: qsTr("Other server")
        contentItem: Row {
            spacing: 4
            Label {
                anchors.verticalCenter: parent.verticalCenter
                text: otherServer.text
                color: Theme.secondaryText
                font.pixelSize: 13
            }
            IconImage {
                anchors.verticalCenter: parent.verticalCenter
                source: Icons.of("chevron.right")
                sourceSize: Qt.size(12, 12)
                color: Theme.secondaryText
            }
        }
        onClicked: {
            serverField.text = view.session.serverText
            serverPrompt.open()
        }
    }

    Dialog {
        id: serverPrompt
        objectName: "serverPrompt"
        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        title: qsTr("Server")
        width: 380

        ColumnLayout {
            anchors.fill: parent
            spacing: 10

            Label {
                Layout.fillWidth: true
                text: qsTr("Address of your velnor RZ dashboard.")
                wrapMode: Text.Wrap
            }
            TextField {
                id: serverField
                objectName: "serverField"
                Layout.fillWidth: true
                placeholderText: "https://pbx.example.com/"
                inputMethodHints: Qt.ImhUrlCharactersOnly | Qt.ImhNoAutoUppercase
                onAccepted: serverPrompt.accept()
            }
        }

        footer: DialogButtonBox {
            Button {
                Accessible.onPressAction: clicked()
                objectName: "serverCancel"
                text: qsTr("Cancel")
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "serverSave"
                text: qsTr("Save")
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }

        onAccepted: view.session.chooseServerText(serverField.text)
    }
}
