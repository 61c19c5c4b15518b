import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The signed-in window until the sections arrive: who is signed in, and the way out.
Item {
    id: view

    required property QtObject session
    property QtObject phone: null

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
            objectName: "registration"
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: 420
            visible: view.phone !== null
            text: view.phone ? qsTr("Phone: %1").arg(view.phone.registration) : ""
            color: view.phone && view.phone.registered ? Theme.primaryText : Theme.secondaryText
            wrapMode: Text.Wrap
        }
        Label {
            objectName: "phoneError"
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: 420
            visible: view.phone !== null && view.phone.hasLastError
            text: view.phone ? view.phone.lastError : ""
            color: Theme.danger
            wrapMode: Text.Wrap
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
