import QtQuick

// Grey stand-in lines while a list has not arrived, gently pulsing.
Column {
    id: skeleton

    property int rows: 8
    property bool dim: false

    Accessible.role: Accessible.List
    Accessible.name: qsTr("Loading")
    opacity: dim ? 0.45 : 1.0

    SequentialAnimation on dim {
        loops: Animation.Infinite
        PropertyAction { value: true }
        PauseAnimation { duration: 900 }
        PropertyAction { value: false }
        PauseAnimation { duration: 900 }
    }
    Behavior on opacity {
        NumberAnimation { duration: 900; easing.type: Easing.InOutQuad }
    }

    Repeater {
        model: skeleton.rows

        Item {
            required property int index
            width: skeleton.width
            height: 56
            Accessible.ignored: true

            Rectangle {
                x: 16
                anchors.verticalCenter: parent.verticalCenter
                width: 40
                height: 40
                radius: 8
                color: Theme.fieldBackground
            }
            Rectangle {
                x: 68
                y: 12
                // "Name here" on even lines, "Placeholder name" on odd ones.
                width: index % 2 === 0 ? 90 : 140
                height: 12
                radius: 4
                color: Theme.fieldBackground
            }
            Rectangle {
                x: 68
                y: 32
                width: 110
                height: 10
                radius: 4
                color: Theme.fieldBackground
            }
            Rectangle {
                anchors.right: parent.right
                anchors.rightMargin: 16
                y: 12
                // "Yesterday" as a placeholder date.
                width: 60
                height: 10
                radius: 4
                color: Theme.fieldBackground
            }
        }
    }
}
