import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Above a list whose refresh failed: the saved rows stay, and a tap tries again.
AbstractButton {
    id: banner
    Accessible.onPressAction: clicked()

    signal retry()

    implicitHeight: 36
    implicitWidth: 320
    focusPolicy: Qt.StrongFocus
    text: qsTr("Offline. Showing saved data, tap to retry")
    Accessible.name: text
    Accessible.role: Accessible.Button
    onClicked: retry()

    background: Rectangle {
        color: Theme.fieldBackground
        border.width: banner.visualFocus ? 2 : 0
        border.color: Theme.accent
    }
    contentItem: RowLayout {
        spacing: 8
        Item { Layout.fillWidth: true }
        TintedIcon {
            name: "wifi.slash"
            size: 14
            color: Theme.secondaryText
        }
        Text {
            text: banner.text
            color: Theme.secondaryText
            font.family: Theme.fontFamily
            font.pixelSize: 12
        }
        Item { Layout.fillWidth: true }
    }
}
