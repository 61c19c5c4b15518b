import QtQuick

// The phone's registration in a word beside a coloured dot.
Rectangle {
    id: badge

    // The shell's registration word and kind (off, registering, registered, failed).
    required property QtObject shell

    implicitWidth: line.implicitWidth + 20
    implicitHeight: line.implicitHeight + 12
    radius: height / 2
    color: Theme.fieldBackground
    Accessible.role: Accessible.StaticText
    Accessible.name: badge.shell.registrationWord

    Row {
        id: line
        anchors.centerIn: parent
        spacing: 6

        Rectangle {
            objectName: "registrationDot"
            anchors.verticalCenter: parent.verticalCenter
            width: 8
            height: 8
            radius: 4
            color: {
                switch (badge.shell.registrationKind) {
                case "registering": return Theme.orange
                case "registered": return Theme.positive
                case "failed": return Theme.danger
                default: return Theme.secondaryText
                }
            }
        }
        Text {
            objectName: "registrationWord"
            anchors.verticalCenter: parent.verticalCenter
            text: badge.shell.registrationWord
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.pixelSize: 11
            Accessible.ignored: true
        }
    }
}
