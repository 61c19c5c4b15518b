import QtQuick
import QtQuick.Controls

// Shows that the call is being recorded. It is drawn when the user may record
// or when the server records the call anyway; pressing it asks for the
// opposite of what the server last said.
AbstractButton {
    id: pill
    Accessible.onPressAction: clicked()

    // The server says the call is recorded.
    property bool recording: false
    // The user may start a recording.
    property bool canRecord: false
    // Asks the server to start (true) or stop (false) recording.
    signal recordingRequested(bool on)

    visible: canRecord || recording
    leftPadding: 10
    rightPadding: 10
    topPadding: 4
    bottomPadding: 4
    focusPolicy: Qt.StrongFocus
    Accessible.role: Accessible.Button
    Accessible.name: recording ? qsTr("Recording, stop") : qsTr("Record this call")
    ToolTip.visible: hovered
    ToolTip.text: recording ? qsTr("Stop recording") : qsTr("Record this call")
    ToolTip.delay: 600

    contentItem: Row {
        spacing: 5
        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            width: 7
            height: 7
            radius: 3.5
            color: pill.recording ? "white" : Theme.danger
        }
        Text {
            objectName: "recordPillLabel"
            anchors.verticalCenter: parent.verticalCenter
            text: pill.recording ? qsTr("Recording") : qsTr("Record")
            color: pill.recording ? "white" : Theme.danger
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 10
        }
    }
    background: Rectangle {
        radius: height / 2
        color: pill.recording ? Theme.danger
                              : Qt.rgba(Theme.danger.r, Theme.danger.g, Theme.danger.b, 0.12)
        border.width: pill.visualFocus ? 2 : 0
        border.color: Theme.accent
    }
    onClicked: recordingRequested(!recording)
}
