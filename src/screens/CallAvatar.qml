import QtQuick
import QtQuick.Controls.impl

// The caller's initials in a circle, for the call window. Digits alone (a
// number with no name) show the phone symbol instead.
Rectangle {
    id: avatar

    property string name: ""
    property int size: 64

    implicitWidth: size
    implicitHeight: size
    radius: size / 2
    color: Qt.rgba(Theme.accent.r, Theme.accent.g, Theme.accent.b, Theme.dark ? 0.3 : 0.14)
    Accessible.ignored: true

    readonly property string initials: {
        const words = name.split(/\s+/).filter(w => w.length > 0 && !/[0-9+*#(]/.test(w[0]))
        if (words.length === 0)
            return ""
        const first = words[0][0]
        const last = words.length > 1 ? words[words.length - 1][0] : ""
        return (first + last).toUpperCase()
    }

    Text {
        anchors.centerIn: parent
        visible: avatar.initials !== ""
        text: avatar.initials
        color: Theme.accent
        font.family: Theme.fontFamily
        font.weight: Font.DemiBold
        font.pixelSize: Math.round(avatar.size * 0.38)
    }
    IconImage {
        anchors.centerIn: parent
        visible: avatar.initials === ""
        source: Icons.of("phone.fill")
        sourceSize.width: Math.round(avatar.size * 0.42)
        sourceSize.height: Math.round(avatar.size * 0.42)
        color: Theme.accent
    }
}
