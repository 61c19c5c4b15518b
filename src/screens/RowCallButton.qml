import QtQuick
import QtQuick.Controls

// The round green call button at the end of a callable row.
AbstractButton {
    id: button
    Accessible.onPressAction: clicked()

    width: 28
    height: 28
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    Accessible.name: qsTr("Call")
    Accessible.role: Accessible.Button

    background: Rectangle {
        radius: 14
        color: button.hovered ? Theme.positive
                              : Qt.rgba(Theme.positive.r, Theme.positive.g, Theme.positive.b, 0.12)
        border.width: button.visualFocus ? 2 : 0
        border.color: Theme.accent
    }
    contentItem: Item {
        TintedIcon {
            anchors.centerIn: parent
            name: "phone.fill"
            size: 12
            color: button.hovered ? "white" : Theme.positive
        }
    }
}
