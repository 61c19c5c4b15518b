import QtQuick

// An extension number on an accent capsule.
Rectangle {
    property string text

    implicitWidth: label.implicitWidth + 14
    implicitHeight: label.implicitHeight + 4
    radius: height / 2
    color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.10)
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    Text {
        id: label
        anchors.centerIn: parent
        text: parent.text
        color: Theme.accent
        font.family: Theme.fontFamily
        font.weight: Font.Medium
        font.pixelSize: 11
    }
}
