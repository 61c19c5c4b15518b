import QtQuick
import QtQuick.Controls

// The round button of the call window: a symbol in a circle, with an optional
// word below it. `active` draws it as switched on (mute while muted).
Item {
    id: control

    property string title: ""
    property string systemImage: ""
    // A filled circle of this colour with a white symbol; none draws a quiet circle.
    property color tint: "transparent"
    property bool active: false
    property int size: 44
    property string toolTip: ""
    // What a screen reader says; the title when there is one.
    property string accessibleName: title
    signal clicked()

    readonly property bool tinted: tint.a > 0
    implicitWidth: Math.max(size, caption.visible ? caption.implicitWidth : 0)
    implicitHeight: size + (caption.visible ? caption.implicitHeight + 6 : 0)
    activeFocusOnTab: button.activeFocusOnTab

    RoundButton {
        id: button
        Accessible.onPressAction: clicked()
        objectName: control.objectName ? control.objectName + "Circle" : ""
        anchors.horizontalCenter: parent.horizontalCenter
        width: control.size
        height: control.size
        padding: 0
        enabled: control.enabled
        focusPolicy: Qt.StrongFocus
        icon.source: Icons.of(control.systemImage)
        icon.width: Math.round(control.size * 0.45)
        icon.height: Math.round(control.size * 0.45)
        icon.color: control.tinted ? "white" : control.active ? Theme.windowBackground : Theme.primaryText
        Accessible.role: Accessible.Button
        Accessible.name: control.accessibleName
        Accessible.checkable: control.active
        ToolTip.visible: control.toolTip !== "" && hovered
        ToolTip.text: control.toolTip
        ToolTip.delay: 600
        background: Rectangle {
            radius: width / 2
            opacity: button.enabled ? 1 : 0.4
            color: control.tinted ? (button.down ? Qt.darker(control.tint, 1.2) : control.tint)
                 : control.active ? Theme.primaryText
                 : button.down ? Theme.separator : Theme.fieldBackground
            border.width: button.visualFocus ? 2 : 0
            border.color: Theme.accent
        }
        onClicked: control.clicked()
        Keys.onReturnPressed: control.clicked()
        Keys.onEnterPressed: control.clicked()
    }

    Label {
        id: caption
        anchors.top: button.bottom
        anchors.topMargin: 6
        anchors.horizontalCenter: parent.horizontalCenter
        visible: control.title !== ""
        text: control.title
        color: Theme.secondaryText
        font.family: Theme.fontFamily
        font.pixelSize: 11
        Accessible.ignored: true
    }
}
