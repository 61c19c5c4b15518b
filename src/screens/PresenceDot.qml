import QtQuick

// A colleague's presence as a dot: idle, ringing, busy, dnd or offline.
Rectangle {
    id: dot

    property string presence: "offline"

    width: 11
    height: 11
    radius: 5.5
    color: {
        switch (presence) {
        case "idle": return Theme.positive
        case "ringing": return Theme.orange
        case "busy": return Theme.danger
        case "dnd": return Theme.purple
        default: return Qt.rgba(Theme.secondaryText.r, Theme.secondaryText.g,
                                Theme.secondaryText.b, 0.6)
        }
    }
    Accessible.role: Accessible.Indicator
    Accessible.name: {
        switch (presence) {
        case "idle": return qsTr("Available")
        case "ringing": return qsTr("Ringing")
        case "busy": return qsTr("On a call")
        case "dnd": return qsTr("Do not disturb")
        default: return qsTr("Offline")
        }
    }
}
