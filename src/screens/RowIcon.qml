import QtQuick

// A system image on an avatar-sized accent tile, for rows that are not people.
Rectangle {
    property string systemName

    width: 40
    height: 40
    radius: 8
    color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, 0.12)

    TintedIcon {
        anchors.centerIn: parent
        name: parent.systemName
        size: 18
        color: Theme.accent
    }
}
