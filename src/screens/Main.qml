import QtQuick
import QtQuick.Controls

ApplicationWindow {
    id: window

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

    Column {
        anchors.centerIn: parent
        spacing: 14

        Image {
            anchors.horizontalCenter: parent.horizontalCenter
            source: "qrc:/images/net.velnor.rz.svg"
            sourceSize: Qt.size(72, 72)
        }

        Label {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "velnor RZ"
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 26
        }
    }
}
