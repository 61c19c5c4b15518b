import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The signed-in window until the sections arrive: who is signed in, and the way out.
Item {
    id: view

    required property QtObject session

    ColumnLayout {
        anchors.centerIn: parent
        spacing: 16

        Label {
            objectName: "userName"
            Layout.alignment: Qt.AlignHCenter
            text: view.session.userName
            color: Theme.primaryText
            font.weight: Font.DemiBold
            font.pixelSize: 22
        }
        Label {
            objectName: "signedInError"
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: 420
            visible: view.session.hasError
            text: view.session.error
            color: Theme.danger
            wrapMode: Text.Wrap
        }
        Button {
            objectName: "signOutButton"
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Sign out")
            onClicked: view.session.signOutKeepingDeviceFromScreen()
        }
    }
}
