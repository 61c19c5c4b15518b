import QtQuick
import QtQuick.Controls

// The call's signal bars: of three rising bars, one lit for "poor", two for
// "fair", all three for "good", in the level's colour; nothing without a level.
Item {
    id: bars

    property string level: ""
    property int size: 16

    readonly property int lit: level === "good" ? 3 : level === "fair" ? 2 : level === "poor" ? 1 : 0
    readonly property string words: level === "good" ? qsTr("Good connection")
                                  : level === "fair" ? qsTr("Fair connection")
                                  : level === "poor" ? qsTr("Poor connection") : ""
    readonly property color tint: level === "good" ? Theme.positive
                                : level === "fair" ? Theme.orange : Theme.danger

    visible: level !== ""
    implicitWidth: size
    implicitHeight: size

    Row {
        anchors.centerIn: parent
        spacing: Math.max(1, Math.round(bars.size / 8))
        Repeater {
            model: 3
            Rectangle {
                required property int index
                anchors.bottom: parent.bottom
                width: Math.max(2, Math.round(bars.size / 5))
                height: Math.round(bars.size * (0.4 + 0.3 * index))
                radius: 1
                color: index < bars.lit ? bars.tint : Theme.separator
            }
        }
    }

    HoverHandler { id: hover }
    ToolTip.visible: hover.hovered && words !== ""
    ToolTip.text: words
    Accessible.role: Accessible.Indicator
    Accessible.name: words
}
