import QtQuick
import QtQuick.Controls

// The agents of a queue as a row of chips, each a dot in the colour of the
// agent's state and a name; scrolled sideways when it does not fit.
Flickable {
    id: flow

    required property var agents

    implicitHeight: chips.implicitHeight
    contentWidth: chips.implicitWidth
    contentHeight: chips.implicitHeight
    flickableDirection: Flickable.HorizontalFlick
    interactive: contentWidth > width
    clip: true
    boundsBehavior: Flickable.StopAtBounds

    function toneColor(tone) {
        switch (tone) {
        case "positive": return Theme.positive
        case "orange": return Theme.orange
        case "danger": return Theme.danger
        case "purple": return Theme.purple
        default: return Qt.rgba(Theme.secondaryText.r, Theme.secondaryText.g,
                                Theme.secondaryText.b, 0.6)
        }
    }

    Row {
        id: chips
        spacing: 6
        Repeater {
            model: flow.agents
            Rectangle {
                id: chip
                required property var modelData
                objectName: "agentChip"
                readonly property string label: modelData.label
                implicitWidth: line.implicitWidth + 16
                implicitHeight: line.implicitHeight + 8
                radius: height / 2
                color: Theme.fieldBackground
                Accessible.role: Accessible.StaticText
                Accessible.name: modelData.name
                Accessible.description: modelData.label
                ToolTip.visible: hover.hovered
                ToolTip.text: modelData.label
                HoverHandler { id: hover }
                Row {
                    id: line
                    anchors.centerIn: parent
                    spacing: 5
                    Rectangle {
                        objectName: "agentDot"
                        anchors.verticalCenter: parent.verticalCenter
                        width: 7
                        height: 7
                        radius: 3.5
                        color: flow.toneColor(chip.modelData.tone)
                    }
                    Text {
                        objectName: "agentName"
                        text: chip.modelData.name
                        color: Theme.primaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 11
                    }
                }
            }
        }
    }
}
