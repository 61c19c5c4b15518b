import QtQuick

// A person's picture, or the monogram of their name on a tinted tile.
Item {
    id: avatar

    property string name
    // A picture at hand (a URL or image provider address); empty for none.
    property url image
    property real size: 40
    // Where the monogram comes from; the shell's rules.
    property QtObject shell: null

    width: size
    height: size
    implicitWidth: size
    implicitHeight: size

    Rectangle {
        anchors.fill: parent
        radius: 8
        color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.12)
        visible: picture.status !== Image.Ready
    }
    Text {
        anchors.centerIn: parent
        visible: picture.status !== Image.Ready
        text: avatar.shell ? avatar.shell.monogram(avatar.name) : ""
        color: Theme.accent
        font.family: Theme.fontFamily
        font.weight: Font.DemiBold
        font.pixelSize: Math.round(avatar.size * 0.4 * 13 / 17)
        Accessible.ignored: true
    }
    Image {
        id: picture
        anchors.fill: parent
        source: avatar.image
        fillMode: Image.PreserveAspectCrop
        visible: status === Image.Ready
    }
}
